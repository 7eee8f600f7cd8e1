// Builds a document's tree from its text. It is forgiving: closing tags are matched by depth alone, what cannot be read
// is left out and nothing is rejected. Nesting costs no stack.
//
// Two rules tell where a tag ends. Reading goes by the first ">"; the search for a closing tag also takes a "/" outside
// quotes for the end of an empty element. Nearly every document reads the same by both, and for those one pass does;
// one that holds a tag on which they differ is read again by the second rule's table of closing tags.
#ifndef QUARVEL_COMMON_XML_XMLPARSER_H
#define QUARVEL_COMMON_XML_XMLPARSER_H

#include <memory>
#include <string_view>
#include <vector>

#include "Common/xml/XmlDocument.h"

// What a text was parsed into.
struct XmlParsed {
  XMLElement* root = nullptr;         // of the arena, which it keeps alive; null without a complete element
  std::vector<XMLComment*> comments;  // outside the root, of the arena; position 0 before, 1 after the first element
  bool unclosed = false;              // an element has no end
  size_t stopped = 0;                 // the offset at which parsing stopped
};

// Parses the arena's text from `begin` to `end`, which is followed by some bytes of zero.
XmlParsed ParseXml(const std::shared_ptr<XmlArena>& arena, const char* begin, const char* end);

class XMLHelper {
 public:
  // Parses a run of text into children and texts of `parent`, after those that it has. With no parent the comments go
  // to the header. Returns the element recorded at that level: one of the parent's children, or, with no parent, one
  // that the caller owns; null when there is none. Sets `*unclosed` if an element has no end.
  static XMLElement* ParseElementTree(XMLHeader* header, XMLElement* parent, std::string_view text,
                                      bool* unclosed = nullptr);
  // From an element's "<" at the text's start: the offset behind its closing tag, npos without one.
  static size_t FindXMLClose(std::string_view text);
  // Adds a run of text, without the blanks at its ends and stored as it stands, unless nothing else is in it.
  static void AddBlankVariable(XMLElement* element, std::string_view text, unsigned position);
};

#endif
