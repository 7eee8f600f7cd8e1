// Builds a document's tree from its text. It is forgiving: it matches closing tags by depth, leaves out what it cannot
// read and never rejects a document. Nesting costs no stack.
#ifndef QUARVEL_COMMON_XMLPARSER_H
#define QUARVEL_COMMON_XMLPARSER_H

#include <string_view>

#include "Common/Xml.h"

class XmlParser {
 public:
  explicit XmlParser(XML& document) : m_document(document) {}

  // Returns the root, null when the first top-level element has no end.
  XMLElement* Parse(std::string_view text);

 private:
  struct Level;

  bool ReadTag(std::vector<Level>& levels, size_t start);
  void ReadComment(const Level& level, std::string_view tag);
  bool ReadElement(std::vector<Level>& levels, size_t start, size_t end);
  static void AddBlankVariable(XMLElement* element, std::string_view run);
  static size_t FindXMLClose(std::string_view text);

  XML& m_document;
  std::string_view m_text;
};

#endif
