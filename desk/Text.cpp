#include "desk/Text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <charconv>

std::string TextOfField(const char* field, size_t size) {
  return {field, strnlen(field, size)};
}

std::string Printable(std::string_view text) {
  std::string safe(text);
  std::replace_if(
      safe.begin(), safe.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
  return safe;
}

std::string_view FileNameOf(std::string_view path) {
  size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string PenIdText(uint64_t id) {
  return fmt::format("0x{:016x}", id);
}

std::optional<uint64_t> ParsePenId(std::string_view text) {
  bool hex = text.starts_with("0x") || text.starts_with("0X");
  if (hex) text.remove_prefix(2);
  uint64_t id = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id, hex ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return id;
}

// In whole tenths, since 0.05 has no exact value and machines round it differently.
std::string BytesText(uint64_t bytes) {
  constexpr uint64_t kilo = 1000;
  if (bytes < kilo) return fmt::format("{} B", bytes);
  uint64_t tenth = kilo / 10;
  uint64_t tenths = 0;
  std::string_view named;
  for (std::string_view unit : {"kB", "MB", "GB"}) {
    named = unit;
    tenths = bytes / tenth + (bytes % tenth * 2 >= tenth ? 1 : 0);
    if (tenths < 10 * kilo) break;
    tenth *= kilo;
  }
  return fmt::format("{}.{} {}", tenths / 10, tenths % 10, named);
}

std::string DurationText(uint64_t seconds) {
  uint64_t hours = seconds / 3600;
  if (hours > 0) return fmt::format("{}:{:02}:{:02}", hours, seconds / 60 % 60, seconds % 60);
  return fmt::format("{}:{:02}", seconds / 60, seconds % 60);
}

std::string TimeText() {
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(time(nullptr)));
}
