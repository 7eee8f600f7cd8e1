// An XML document as a tree, read whole from a file or from memory. Texts are held as they stand in the document, with
// their references; the lookups give them decoded. A document and its tree are used by one thread at a time; elements
// belong to their document.
#ifndef QUARVEL_COMMON_XML_H
#define QUARVEL_COMMON_XML_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class XMLElement;

// An attribute; name and value as they stand in the document.
struct XMLVariable {
  std::string_view name;
  std::string_view value;
};

// A run of text between child elements: `position` children of its owner precede it.
struct XMLContent {
  unsigned position;
  std::string_view text;
};
using XMLComment = XMLContent;
using XMLCData = XMLContent;

class XMLElement {
 public:
  XMLElement(XMLElement* parent, std::string_view tag);

  unsigned GetChildrenNum() const { return static_cast<unsigned>(m_children.size()); }
  XMLElement* const* GetChildren() const { return m_children.data(); }
  XMLElement* GetParent() const { return m_parent; }

  // The first child, or its index, whose name is exactly `name`; null or -1 without one.
  XMLElement* GetChild(const char* name) const;
  int FindElement(const char* name) const;

  // The first text of that child; false when there is no such child or it has no text.
  bool GetChildContent(const char* name, std::string& out) const;
  int32_t GetChildContentInt(const char* name, int32_t otherwise) const;
  bool GetChildContentBool(const char* name) const;

  // The value of an attribute; false without it.
  bool GetVariable(const char* name, std::string& out) const;
  int FindVariable(const char* name) const;

  bool GetContent(std::string& out) const;
  std::string GetElementName() const;

  const std::vector<XMLVariable>& variables() const { return m_variables; }
  const std::vector<XMLContent>& contents() const { return m_contents; }
  const std::vector<XMLComment>& comments() const { return m_comments; }
  const std::vector<XMLCData>& cdatas() const { return m_cdatas; }

 private:
  friend class XmlParser;
  void ReadName(std::string_view& tag);
  void ReadVariables(std::string_view tag);

  XMLElement* m_parent;
  std::string m_name;
  std::vector<XMLElement*> m_children;
  std::vector<XMLVariable> m_variables;
  std::vector<XMLComment> m_comments;
  std::vector<XMLContent> m_contents;
  std::vector<XMLCData> m_cdatas;
};

class XML {
 public:
  // Mode 0 reads the file at `source`, mode 1 the text `source`.
  XML(const char* source, int mode);
  ~XML();
  XML(const XML&) = delete;
  XML& operator=(const XML&) = delete;

  // The root; null only when the first top-level element has no end.
  XMLElement* GetRootElement() const { return m_root; }
  // Whether the root was supplied because the document is missing, empty or without any "<".
  bool HasDefaultRoot() const { return m_defaultRoot; }
  // 0 parsed, 1 without a declaration or without any "<", 2 an element has no end.
  int ParseStatus() const { return m_status; }
  const std::string& header() const { return m_header; }

  static std::string Encode(std::string_view text);
  static std::string Decode(std::string_view text);

 private:
  friend class XmlParser;
  void UseDefaultRoot(const char* tag);
  void Parse();
  XMLElement* NewElement(XMLElement* parent, std::string_view tag);

  std::string m_text;
  std::string m_header;
  std::vector<std::unique_ptr<XMLElement>> m_elements;  // every element of the tree
  std::vector<XMLComment> m_headerComments;             // position 0 before the root, 1 after it
  XMLElement* m_root = nullptr;
  int m_status = 0;
  bool m_defaultRoot = false;
};

#endif
