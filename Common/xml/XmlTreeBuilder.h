// Puts a tree together in an arena, in document order. Children and texts are collected on stacks that all open
// elements share and get arrays of their exact size when their element is closed, so that nothing is ever moved or
// grown.
#ifndef QUARVEL_COMMON_XML_XMLTREEBUILDER_H
#define QUARVEL_COMMON_XML_XMLTREEBUILDER_H

#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "Common/xml/XmlElement.h"

class XmlTreeBuilder {
 public:
  explicit XmlTreeBuilder(XmlArena& arena) : m_arena(arena) { Restart(); }
  void Restart();

  // A start tag's text without "<" and ">". What follows goes into the element until it is closed.
  void Open(std::string_view tag) { Enter(MakeElement(tag)); }
  // The same for a tag that is a name to be stored as it stands.
  void OpenBare(std::string_view name) {
    auto* element = New<XMLElement>(XMLElement::InArena(), m_levels.back().element);
    element->m_name.Borrow(name);
    Enter(element);
  }
  void Close();
  void AddEmpty(std::string_view tag);
  // The text between two tags; blanks at its ends are left out.
  void AddRun(const char* begin, const char* end);
  void AddComment(std::string_view text);
  void AddCData(std::string_view text);

  // Whether an element is open.
  bool IsOpen() const { return m_levels.size() > 1; }
  // The element recorded among the outermost: the latest that was closed, else the first empty one.
  XMLElement* recorded() const { return m_recorded; }
  // The comments outside all elements.
  std::vector<XMLComment*> OuterComments() const;
  // Puts an element around all that follows; the elements in it count as the outermost. Closing it takes everything out
  // of it and adds that to `parent`.
  void OpenFrame();
  void CloseFrame(XMLElement& parent, const std::shared_ptr<XmlArena>& arena);
  // The same element, as the top of a tree that keeps the arena alive.
  static XMLElement* MakeTop(XMLElement* element, const std::shared_ptr<XmlArena>& arena);

 private:
  struct Level {
    XMLElement* element = nullptr;
    uint32_t children = 0;  // how much of the stacks belongs to the elements around it
    uint32_t contents = 0;
    uint32_t comments = 0;
    uint32_t cdatas = 0;
  };

  template <class T>
  static uint32_t Count(const std::vector<T>& stack) {
    return static_cast<uint32_t>(stack.size());
  }
  template <class T, class... Arguments>
  T* New(Arguments&&... arguments) {
    return new (m_arena.Take(sizeof(T))) T(std::forward<Arguments>(arguments)...);
  }
  XMLElement* MakeElement(std::string_view tag);
  void Enter(XMLElement* element) {
    m_levels.push_back({element, Count(m_children), Count(m_contents), Count(m_comments), Count(m_cdatas)});
  }
  void Add(XMLElement* element, bool empty);
  void ReadVariables(XMLElement& element, std::string_view tag);
  XMLElement::Rare& RareOf(XMLElement& element);
  template <class Node>
  Node* MakeText(std::string_view text);
  template <class List, class Node>
  void MoveTo(List& list, std::vector<Node*>& stack, uint32_t first);

  XmlArena& m_arena;
  std::vector<Level> m_levels;
  std::vector<XMLElement*> m_children;
  std::vector<XMLContent*> m_contents;
  std::vector<XMLComment*> m_comments;
  std::vector<XMLCData*> m_cdatas;
  std::vector<XMLVariable*> m_variables;
  XMLElement* m_recorded = nullptr;
  size_t m_outermost = 1;  // the level of the outermost elements
  bool m_seen = false;     // one of them
};

#endif
