// Which closing tag belongs to which element, for all elements of a text at once. A search for one of them goes from
// tag to tag, and where it goes next depends on the tag alone: so the ways of all searches grow together into a tree,
// which is walked once, from the end of the text. Building the table takes time with the length of the text whatever is
// in it, and 16 bytes per tag. Used by one parser, on its thread.
#ifndef QUARVEL_COMMON_XML_XMLCLOSETABLE_H
#define QUARVEL_COMMON_XML_XMLCLOSETABLE_H

#include <cstdint>
#include <vector>

class XmlCloseTable {
 public:
  // The text is shorter than 4 GiB. The table is built when it is first asked.
  XmlCloseTable(const char* begin, const char* end) : m_begin(begin), m_end(end) {}

  // The "<" of the closing tag of the element at `tag`, null when none ends up to `end`. Asked for one element after
  // the other, in the order of the text; each is the first "<" of the text, or the first one behind some ">".
  const char* Find(const char* tag, const char* end);

 private:
  // A tag on the way of a search. Indices are into m_tags, where what stands further back in the text comes first;
  // kNone is a tag in front of all, which leads nowhere.
  //
  // A search knows its depth; seen from the end of the text every tag has a level of its own instead, which falls by
  // one behind a start tag and rises by one behind a closing tag. An element's closing tag is the first one on the way
  // whose level is one below the element's.
  struct Tag {
    uint32_t at = 0;     // offset of its "<"
    uint32_t next = 0;   // where the search goes on
    uint32_t close = 0;  // the first closing tag of this level, from here on
    uint32_t start = 0;  // the first start tag of this level
  };
  static constexpr uint32_t kNone = 0;
  class Builder;

  const char* m_begin;
  const char* m_end;
  std::vector<Tag> m_tags;
};

#endif
