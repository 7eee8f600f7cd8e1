#include "Common/StringUtil.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <limits>

namespace {

constexpr size_t kVersionParts = 5;
constexpr size_t kVersionLimit = 49;  // longer version texts are cut

char Lower(char c) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}
char Upper(char c) {
  return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

// ToInt over a text that need not end in a NUL.
int32_t ParseInt(std::string_view text) {
  constexpr int64_t kLimit = static_cast<int64_t>(std::numeric_limits<int32_t>::max()) + 1;
  size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  const bool negative = i < text.size() && text[i] == '-';
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
  int64_t value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = std::min(kLimit, value * 10 + (text[i] - '0'));
  }
  return static_cast<int32_t>(negative ? -value : std::min(value, kLimit - 1));
}

// Calls `use` for each run of characters outside `delims`, until it answers false.
template <typename Use>
void ForEachToken(std::string_view text, std::string_view delims, Use use) {
  for (size_t begin = text.find_first_not_of(delims); begin != std::string_view::npos;) {
    const size_t end = std::min(text.find_first_of(delims, begin), text.size());
    if (!use(text.substr(begin, end - begin))) return;
    begin = text.find_first_not_of(delims, end);
  }
}

std::array<int32_t, kVersionParts> VersionNumbers(const char* version) {
  std::array<int32_t, kVersionParts> numbers{};
  size_t count = 0;
  const std::string_view text = version ? std::string_view(version).substr(0, kVersionLimit) : std::string_view();
  ForEachToken(text, "._", [&](std::string_view token) {
    numbers[count++] = ParseInt(token);
    return count < kVersionParts;
  });
  return numbers;
}

// The part of a text that the C library's tokeniser sees: up to its first NUL.
std::string_view UpToNul(const std::string& text) {
  return text.c_str();
}

}  // namespace

int CStringUtil::CompareVersion(const char* a, const char* b) {
  const auto left = VersionNumbers(a);
  const auto right = VersionNumbers(b);
  if (left == right) return 0;
  return left > right ? 1 : -1;
}

int32_t CStringUtil::ToInt(const char* text) {
  return text ? ParseInt(text) : 0;
}

void CStringUtil::SplitToInts(const std::string& text, std::string delims, std::vector<int32_t>& out) {
  ForEachToken(UpToNul(text), UpToNul(delims), [&](std::string_view token) {
    out.push_back(ParseInt(token));
    return true;
  });
}

void CStringUtil::Split(const std::string& text, std::string delims, std::vector<std::string>& out) {
  ForEachToken(UpToNul(text), UpToNul(delims), [&](std::string_view token) {
    out.emplace_back(token);
    return true;
  });
}

std::string CStringUtil::ReplaceAll(const std::string& text, const std::string& from, const std::string& to) {
  std::string result = text;
  if (from.empty()) return result;
  // A replacement that brings the searched text along would be replaced for ever: it is stepped over as a whole.
  const size_t step = to.find(from, 1) == std::string::npos ? 1 : to.size();
  for (size_t found = result.find(from); found != std::string::npos; found = result.find(from, found + step)) {
    result.replace(found, from.size(), to);
  }
  return result;
}

void CStringUtil::ToLower(std::string& text) {
  std::transform(text.begin(), text.end(), text.begin(), Lower);
}

void CStringUtil::ToUpper(std::string& text) {
  std::transform(text.begin(), text.end(), text.begin(), Upper);
}

void CStringUtil::ToLower(char* text) {
  if (text) std::transform(text, text + std::strlen(text), text, Lower);
}

void CStringUtil::ToUpper(char* text) {
  if (text) std::transform(text, text + std::strlen(text), text, Upper);
}
