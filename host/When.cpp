#include "host/When.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <charconv>

namespace {

constexpr const char* kForm = "%Y-%m-%dT%H:%M:%SZ";

bool Parses(const std::string& text, const char* form, std::tm& parts) {
  parts = {};
  const char* end = strptime(text.c_str(), form, &parts);
  return end && *end == '\0';
}

std::optional<time_t> TimeOf(const std::string& text) {
  std::tm parts{};
  if (!Parses(text, kForm, parts)) return std::nullopt;
  return timegm(&parts);
}

std::string TextOf(time_t time) {
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(time));
}

std::optional<int64_t> SecondsOf(char unit) {
  switch (unit) {
    case 'd':
      return 86400;
    case 'h':
      return 3600;
    case 'm':
      return 60;
    default:
      return std::nullopt;
  }
}

}  // namespace

std::string WhenText(const std::string& time, bool year) {
  std::optional<time_t> point = TimeOf(time);
  if (!point) return time;
  return year ? fmt::format("{:%Y-%m-%d %H:%M}", fmt::localtime(*point))
              : fmt::format("{:%m-%d %H:%M}", fmt::localtime(*point));
}

std::optional<std::string> ParseSince(const std::string& text, time_t now) {
  std::tm parts{};
  if (TimeOf(text)) return text;
  if (Parses(text, "%Y-%m-%d", parts)) {
    parts.tm_isdst = -1;
    return TextOf(mktime(&parts));
  }
  int64_t count = 0;
  const char* last = text.data() + text.size() - 1;
  std::optional<int64_t> unit = text.size() > 1 ? SecondsOf(*last) : std::nullopt;
  if (!unit) return std::nullopt;
  auto [end, error] = std::from_chars(text.data(), last, count);
  constexpr int64_t most = 1'000'000;  // of days, two thousand years and more
  if (error != std::errc() || end != last || count < 0 || count > most) return std::nullopt;
  return TextOf(std::max(now - static_cast<time_t>(count * *unit), time_t{0}));
}

uint64_t SecondsBetween(const std::string& from, const std::string& to) {
  std::optional<time_t> begin = TimeOf(from);
  std::optional<time_t> end = TimeOf(to);
  return begin && end && *end > *begin ? static_cast<uint64_t>(*end - *begin) : 0;
}
