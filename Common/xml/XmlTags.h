// How tags end. No state.
#ifndef QUARVEL_COMMON_XML_XMLTAGS_H
#define QUARVEL_COMMON_XML_XMLTAGS_H

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace xmltags {

constexpr std::string_view kCData = "<![CDATA[";
constexpr std::string_view kCDataEnd = "]]>";

// The first `wanted` in the text, or null.
inline const char* Find(const char* begin, const char* end, char wanted) {
  return begin < end ? static_cast<const char*>(std::memchr(begin, wanted, static_cast<size_t>(end - begin))) : nullptr;
}
inline bool StartsWith(const char* text, const char* end, std::string_view prefix) {
  return static_cast<size_t>(end - text) >= prefix.size() && std::memcmp(text, prefix.data(), prefix.size()) == 0;
}
inline bool IsComment(const char* tag, const char* end) {
  return StartsWith(tag, end, "<!--") || StartsWith(tag, end, "<?");
}
inline bool IsBlank(char c) {
  return c == ' ' || c == '\n' || c == '\t' || c == '\r';
}

// The first character that is no blank. The text is followed by a byte of zero.
inline const char* SkipBlanks(const char* text) {
  while (IsBlank(*text)) ++text;
  return text;
}

// Behind the characters of a name that is stored as it stands. The text is followed by a byte of zero.
inline const char* SkipPlainName(const char* name) {
  static constexpr auto kEnds = [] {
    std::array<bool, 256> ends{};
    for (const char c : {'\0', ' ', '/', '\t', '>', '"', '<', '&', '\''}) ends[static_cast<unsigned char>(c)] = true;
    return ends;
  }();
  while (!kEnds[static_cast<unsigned char>(*name)]) ++name;
  return name;
}

// The ">" that ends the tag, or null.
const char* FindEnd(const char* tag, const char* end);

// One step of the search for a closing tag: behind the tag, and by how much it changes the depth. Null when it has no
// end.
struct Step {
  const char* next;
  int depth;
};
Step Scan(const char* tag, const char* end);

// Whether an element's tag, which ends at `close`, reads the same by both rules.
bool IsPlainTag(const char* tag, const char* close);

}  // namespace xmltags

#endif
