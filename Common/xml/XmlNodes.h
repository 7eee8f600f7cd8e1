// The small nodes of an XML tree: attributes, and the three kinds of text between child elements. A node belongs to the
// element that it was added to and is deleted with it; one that was never added belongs to whoever made it. Texts are
// held escaped; unless `raw` says otherwise they are escaped when stored and decoded when read. Used by one thread at a
// time, like the whole tree.
#ifndef QUARVEL_COMMON_XML_XMLNODES_H
#define QUARVEL_COMMON_XML_XMLNODES_H

#include <cstdint>
#include <string>
#include <string_view>

#include "Common/xml/XmlStore.h"

class XMLElement;

// An attribute.
class XMLVariable {
 public:
  explicit XMLVariable(std::string_view name = {}, std::string_view value = {}, bool raw = false);

  // The buffer forms write at most `size` bytes with the NUL and return the whole length; without a buffer they only
  // tell the length.
  size_t GetName(char* buffer, size_t size, bool raw = false) const;
  size_t GetValue(char* buffer, size_t size, bool raw = false) const;
  std::string GetName(bool raw = false) const;
  std::string GetValue(bool raw = false) const;
  int32_t GetValueInt() const;

  void SetName(std::string_view name, bool raw = false);
  void SetValue(std::string_view value, bool raw = false);
  void SetValueInt(int32_t value);
  void Clear();  // both texts become empty

  // Copies that the caller owns: without an owner, and with this one's.
  XMLVariable* Duplicate() const;
  XMLVariable* Copy() const;
  // Whether both have the same name and value.
  bool Compare(const XMLVariable& other) const;

  XMLElement* GetOwnerElement() const { return m_owner; }
  // Sets the link alone; the lists of the elements stay as they are.
  void SetOwnerElement(XMLElement* owner);

  std::string_view name() const { return m_name.view(); }
  std::string_view value() const { return m_value.view(); }
  size_t MemoryUsage() const { return sizeof(*this) + m_name.bytes() + m_value.bytes(); }

 private:
  friend class XMLElement;
  friend class XmlTreeBuilder;
  struct Empty {};
  explicit XMLVariable(Empty) {}

  XmlText m_name;
  XmlText m_value;
  XMLElement* m_owner = nullptr;
};

// What the three kinds of text share: the text, and where it stands among its owner's children.
class XMLTextNode {
 public:
  // The number of the owner's children that precede this text.
  unsigned GetEP() const { return m_position; }
  XMLElement* GetParent() const { return m_owner; }
  // Sets the link and the position alone; the lists of the elements stay as they are.
  void SetParent(XMLElement* owner, unsigned position);

  // Whether this text stands before another one of the same owner.
  bool StandsBefore(const XMLTextNode& other) const {
    return m_position != other.m_position ? m_position < other.m_position : m_order < other.m_order;
  }
  // Whether no other text stands between this one and a later one of the same position.
  bool StandsRightBefore(const XMLTextNode& other) const { return m_order + 1 == other.m_order; }
  // The text as stored.
  std::string_view text() const { return m_text.view(); }
  size_t MemoryUsage() const { return sizeof(*this) + m_text.bytes(); }

 protected:
  friend class XMLElement;
  friend class XMLHeader;
  friend class XmlTreeBuilder;
  XMLTextNode(XMLElement* owner, unsigned position, std::string_view text);
  XMLTextNode() = default;

  void Store(std::string_view text);
  size_t Read(char* buffer, size_t size) const;
  bool IsSame(const XMLTextNode& other) const;

  XMLElement* m_owner = nullptr;
  XmlText m_text;
  uint32_t m_position = 0;
  uint32_t m_order = 0;  // among the texts of its owner, whatever their kind
};

class XMLContent : public XMLTextNode {
 public:
  XMLContent(XMLElement* owner, unsigned position, std::string_view text, bool raw = false);

  size_t GetValue(char* buffer, size_t size, bool raw = false) const;
  std::string GetValue(bool raw = false) const;
  void SetValue(std::string_view text, bool raw = false);
  explicit operator std::string() const { return GetValue(); }
  XMLContent* Duplicate() const;
  bool Compare(const XMLContent& other) const { return IsSame(other); }

 private:
  friend class XmlTreeBuilder;
  XMLContent() = default;
};

class XMLComment : public XMLTextNode {
 public:
  XMLComment(XMLElement* owner, unsigned position, std::string_view text) : XMLTextNode(owner, position, text) {}

  size_t GetValue(char* buffer, size_t size) const { return Read(buffer, size); }
  std::string GetValue() const { return std::string(text()); }
  void SetComment(std::string_view text) { Store(text); }
  explicit operator std::string() const { return GetValue(); }
  XMLComment* Duplicate() const { return new XMLComment(nullptr, m_position, text()); }
  bool Compare(const XMLComment& other) const { return IsSame(other); }

 private:
  friend class XmlTreeBuilder;
  XMLComment() = default;
};

class XMLCData : public XMLTextNode {
 public:
  XMLCData(XMLElement* owner, unsigned position, std::string_view text) : XMLTextNode(owner, position, text) {}

  size_t GetValue(char* buffer, size_t size) const { return Read(buffer, size); }
  std::string GetValue() const { return std::string(text()); }
  void SetCData(std::string_view text) { Store(text); }
  explicit operator std::string() const { return GetValue(); }
  XMLCData* Duplicate() const { return new XMLCData(nullptr, m_position, text()); }
  bool Compare(const XMLCData& other) const { return IsSame(other); }

 private:
  friend class XmlTreeBuilder;
  XMLCData() = default;
};

#endif
