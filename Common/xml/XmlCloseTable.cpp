#include "Common/xml/XmlCloseTable.h"

#include "Common/xml/XmlTags.h"

// Walks the text from its end and remembers what would end a tag that begins further in front.
class XmlCloseTable::Builder {
 public:
  Builder(const char* begin, const char* end, std::vector<Tag>& tags) : m_begin(begin), m_end(end), m_tags(tags) {}

  void Build() {
    m_tags.assign(1, Tag());
    for (const char* at = m_end; at-- > m_begin;) {
      if (*at == '<') {
        Add(at);
      } else if (*at == '>') {
        m_close = EndAt(at);
      } else if (*at == '/') {
        m_slashes[m_oddQuotes] = EndAt(at);
      } else if (*at == '"') {
        m_oddQuotes = !m_oddQuotes;
      } else if (*at == ']' && xmltags::StartsWith(at, m_end, xmltags::kCDataEnd)) {
        m_cdataEnd = EndAt(at);
      }
    }
  }

 private:
  // Where a tag may end, and the first tag behind that.
  struct End {
    const char* at = nullptr;
    uint32_t next = kNone;
  };

  uint32_t Last() const { return static_cast<uint32_t>(m_tags.size() - 1); }
  End EndAt(const char* at) {
    m_isReached = true;
    return {at, Last()};
  }

  // No search comes to a "<" when there is neither ">" nor "/" between it and the one before.
  void Add(const char* at) {
    if (!m_isReached) m_tags.pop_back();
    m_tags.push_back(Link(at));
    m_isReached = false;
  }

  Tag Link(const char* at) const {
    const bool isData = xmltags::StartsWith(at, m_end, xmltags::kCData);
    const bool closes = xmltags::StartsWith(at, m_end, "</");
    const bool isElement = !isData && !closes && !xmltags::IsComment(at, m_end);
    const End& slash = m_slashes[m_oddQuotes];  // outside quotes as seen from here
    const bool isEmpty = isElement && slash.at && (!m_close.at || slash.at < m_close.at);
    const End& end = isData ? m_cdataEnd : isEmpty ? slash : m_close;

    Tag tag;
    tag.at = static_cast<uint32_t>(at - m_begin);
    if (!end.at) return tag;  // no search goes further
    const auto self = static_cast<uint32_t>(m_tags.size());
    const Tag& next = m_tags[end.next];
    tag.next = end.next;
    tag.close = next.close;
    tag.start = next.start;
    // The way comes back to its level behind the tag that undoes this one.
    if (closes) {
      tag.close = self;
      tag.start = m_tags[m_tags[next.start].next].start;
    } else if (isElement && !isEmpty) {
      tag.start = self;
      tag.close = m_tags[m_tags[next.close].next].close;
    }
    return tag;
  }

  const char* m_begin;
  const char* m_end;
  std::vector<Tag>& m_tags;
  End m_close;       // the first ">"
  End m_cdataEnd;    // the first "]]>"
  End m_slashes[2];  // the first "/" with an even and an odd number of quotes behind it
  bool m_oddQuotes = false;
  bool m_isReached = true;
};

const char* XmlCloseTable::Find(const char* tag, const char* end) {
  if (m_tags.empty()) Builder(m_begin, m_end, m_tags).Build();
  const auto wanted = static_cast<uint32_t>(tag - m_begin);
  while (m_tags.size() > 1 && m_tags.back().at < wanted) m_tags.pop_back();
  const Tag& element = m_tags.back();
  // One level down is where the first start tag of this level leads: the element's own, unless the search takes it for
  // an empty one.
  const Tag& below = m_tags[m_tags[element.start].next];
  if (below.close == kNone) return nullptr;
  const char* close = m_begin + m_tags[below.close].at;
  return close < end && xmltags::Find(close, end, '>') ? close : nullptr;
}
