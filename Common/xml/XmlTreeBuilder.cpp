#include "Common/xml/XmlTreeBuilder.h"

#include <algorithm>

#include "Common/xml/XmlTags.h"
#include "Common/xml/XmlText.h"

void XmlTreeBuilder::Restart() {
  m_levels.assign(1, Level());
  m_children.clear();
  m_contents.clear();
  m_comments.clear();
  m_cdatas.clear();
  m_recorded = nullptr;
  m_outermost = 1;
  m_seen = false;
}

void XmlTreeBuilder::OpenFrame() {
  Open({});
  m_outermost = 2;
}

void XmlTreeBuilder::CloseFrame(XMLElement& parent, const std::shared_ptr<XmlArena>& arena) {
  // Texts are copied one kind after the other, so their order is that of the frame, behind what the parent has.
  const uint32_t order = parent.NextOrder();
  const unsigned before = parent.GetChildrenNum();
  for (XMLElement* child : m_children) {
    child->m_parent = nullptr;
    child->m_name.listed = false;
    parent.AddElement(MakeTop(child, arena));
  }
  const auto addTexts = [&](const auto& nodes, auto add) {
    for (const auto* node : nodes) {
      auto* copy = node->Duplicate();
      copy->m_position = before + node->m_position;
      (parent.*add)(copy);
      copy->m_order = order + node->m_order;
    }
  };
  addTexts(m_contents, static_cast<unsigned (XMLElement::*)(XMLContent*)>(&XMLElement::AddContent));
  addTexts(m_comments, static_cast<unsigned (XMLElement::*)(XMLComment*)>(&XMLElement::AddComment));
  addTexts(m_cdatas, static_cast<unsigned (XMLElement::*)(XMLCData*)>(&XMLElement::AddCData));
  Restart();
}

XMLElement* XmlTreeBuilder::MakeTop(XMLElement* element, const std::shared_ptr<XmlArena>& arena) {
  if (element) XmlTreeBuilder(*arena).RareOf(*element).arena = arena;
  return element;
}

std::vector<XMLComment*> XmlTreeBuilder::OuterComments() const {
  const auto end = IsOpen() ? m_comments.begin() + m_levels[1].comments : m_comments.end();
  return {m_comments.begin(), end};
}

XMLElement* XmlTreeBuilder::MakeElement(std::string_view tag) {
  auto* element = New<XMLElement>(XMLElement::InArena(), m_levels.back().element);
  bool plain = true;
  const std::string_view name = xmltext::TakeName(tag, &plain);
  element->m_name.Borrow(plain ? name : m_arena.Keep(xmltext::StoredName(name)));
  if (!tag.empty()) ReadVariables(*element, tag);
  return element;
}

void XmlTreeBuilder::ReadVariables(XMLElement& element, std::string_view tag) {
  std::string_view name;
  std::string_view value;
  while (xmltext::TakeVariable(tag, name, value)) {
    auto* variable = New<XMLVariable>(XMLVariable::Empty());
    variable->m_name.Borrow(name);
    variable->m_value.Borrow(value);
    variable->m_name.inArena = true;
    variable->m_name.listed = true;
    variable->m_owner = &element;
    m_variables.push_back(variable);
  }
  if (!m_variables.empty()) MoveTo(RareOf(element).variables, m_variables, 0);
}

XMLElement::Rare& XmlTreeBuilder::RareOf(XMLElement& element) {
  if (!element.m_rare) {
    element.m_rare = New<XMLElement::Rare>();
    element.m_rare->inArena = true;
  }
  return *element.m_rare;
}

// The nodes above `first` leave the stack for an array of their own.
template <class List, class Node>
void XmlTreeBuilder::MoveTo(List& list, std::vector<Node*>& stack, uint32_t first) {
  const uint32_t count = Count(stack) - first;
  auto** items = stack.data() + first;
  if (count > 1) {
    auto** array = static_cast<Node**>(m_arena.Take(count * sizeof(Node*)));
    for (uint32_t i = 0; i < count; ++i) array[i] = items[i];
    items = array;
  }
  list.Borrow(items, count);
  stack.resize(first);
}

void XmlTreeBuilder::Close() {
  const Level level = m_levels.back();
  m_levels.pop_back();
  XMLElement* element = level.element;
  if (m_children.size() > level.children) MoveTo(element->m_children, m_children, level.children);
  if (m_contents.size() > level.contents) MoveTo(element->m_contents, m_contents, level.contents);
  if (m_comments.size() > level.comments) MoveTo(RareOf(*element).comments, m_comments, level.comments);
  if (m_cdatas.size() > level.cdatas) MoveTo(RareOf(*element).cdatas, m_cdatas, level.cdatas);
  Add(element, false);
}

void XmlTreeBuilder::AddEmpty(std::string_view tag) {
  Add(MakeElement(tag), true);
}

void XmlTreeBuilder::Add(XMLElement* element, bool empty) {
  if (m_levels.size() == m_outermost) {
    if (!empty || !m_recorded) m_recorded = element;
    m_seen = true;
  }
  if (!IsOpen()) return;
  element->m_name.listed = true;
  m_children.push_back(element);
}

template <class Node>
Node* XmlTreeBuilder::MakeText(std::string_view text) {
  const Level& level = m_levels.back();
  auto* node = New<Node>();
  node->m_owner = level.element;
  node->m_text.Borrow(text);
  node->m_text.inArena = true;
  node->m_text.listed = true;
  node->m_position = level.element ? Count(m_children) - level.children : static_cast<uint32_t>(m_seen);
  node->m_order =
      Count(m_contents) + Count(m_comments) + Count(m_cdatas) - level.contents - level.comments - level.cdatas;
  return node;
}

void XmlTreeBuilder::AddRun(const char* begin, const char* end) {
  if (!IsOpen()) return;
  while (begin < end && xmltags::IsBlank(*begin)) ++begin;
  if (begin == end) return;
  while (xmltags::IsBlank(end[-1])) --end;
  m_contents.push_back(MakeText<XMLContent>({begin, static_cast<size_t>(end - begin)}));
}

void XmlTreeBuilder::AddComment(std::string_view text) {
  m_comments.push_back(MakeText<XMLComment>(text));
}

void XmlTreeBuilder::AddCData(std::string_view text) {
  if (IsOpen()) m_cdatas.push_back(MakeText<XMLCData>(text));
}
