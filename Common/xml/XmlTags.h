// How tags end and which closing tag belongs to which element. No state but the table's own.
#ifndef QUARVEL_COMMON_XML_XMLTAGS_H
#define QUARVEL_COMMON_XML_XMLTAGS_H

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

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

// The closing tags of one text, found for all elements in one pass. Asked for one element after the other, in the order
// of the text.
class CloseTable {
 public:
  CloseTable(const char* begin, const char* end)
      : m_begin(begin), m_end(end), m_budget(uint64_t{64} * (kSmall + size())) {}

  // The "<" of the closing tag of the element at `tag`, null when none ends up to `end`.
  const char* Find(const char* tag, const char* end);

 private:
  static constexpr size_t kSmall = 4096;
  static constexpr uint32_t kNone = UINT32_MAX;
  struct Entry {
    uint32_t tag;
    uint32_t close;  // while it waits for its closing tag, the entry that waits behind it
  };

  size_t size() const { return static_cast<size_t>(m_end - m_begin); }
  void Fill(const char* from);

  const char* m_begin;
  const char* m_end;
  std::vector<Entry> m_entries;
  size_t m_next = 0;
  // Bytes that may still be passed over. Only an element inside what looks like character data from outside asks for
  // another pass; a text made of these is not worth more.
  uint64_t m_budget;
};

}  // namespace xmltags

#endif
