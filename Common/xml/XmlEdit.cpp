// Edits of an element's children, attributes and texts.
#include <algorithm>
#include <utility>

#include "Common/xml/XmlDocument.h"
#include "Common/xml/XmlElement.h"

// --- children ---

unsigned XMLElement::AddElement(XMLElement* element) {
  return InsertElement(m_children.size(), element);
}

XMLElement* XMLElement::AddElement(std::string_view name) {
  auto* element = new XMLElement(nullptr, {});
  element->SetElementName(name);
  AddElement(element);
  return element;
}

unsigned XMLElement::InsertElement(unsigned index, XMLElement* element) {
  if (!element || element == this) return m_children.size();
  if (element->m_children.size() > 0 && IsBelow(element)) return m_children.size();
  if (element->m_name.listed && !element->Leave()) return m_children.size();
  index = std::min(index, m_children.size());
  ShiftTexts(index, 1);
  m_children.Insert(index, element);
  element->Join(*this);
  return m_children.size();
}

// Takes an element out of the list that it is in; false when its parent does not have it, as for a document's root.
bool XMLElement::Leave() {
  const int index = m_parent ? m_parent->FindElement(this) : -1;
  XMLElement* kept = nullptr;
  return index >= 0 && m_parent->RemoveElementAndKeep(static_cast<unsigned>(index), &kept);
}

// Links an element to the parent that it has been listed in.
void XMLElement::Join(XMLElement& parent) {
  m_parent = &parent;
  m_name.listed = true;
  m_name.touched = true;
  parent.Touch();
}

bool XMLElement::IsBelow(const XMLElement* element) const {
  const XMLElement* parent = m_parent;
  while (parent && parent != element) parent = parent->m_parent;
  return parent != nullptr;
}

bool XMLElement::MoveElement(unsigned from, unsigned to) {
  if (from >= m_children.size() || to >= m_children.size()) return false;
  XMLElement** items = m_children.begin();
  if (from < to) std::rotate(items + from, items + from + 1, items + to + 1);
  if (to < from) std::rotate(items + to, items + from, items + from + 1);
  return true;
}

bool XMLElement::RemoveElement(unsigned index) {
  XMLElement* kept = nullptr;
  if (!RemoveElementAndKeep(index, &kept)) return false;
  delete kept;
  return true;
}

bool XMLElement::RemoveElementAndKeep(unsigned index, XMLElement** kept) {
  if (index >= m_children.size()) return false;
  XMLElement* element = m_children.Take(index);
  ShiftTexts(index, -1);
  if (element) {
    element->m_parent = nullptr;
    element->m_name.listed = false;
    // The parsed part of what leaves keeps the document's memory alive.
    if (element->m_name.inArena && !(element->m_rare && element->m_rare->arena)) element->MakeRare().arena = Arena();
  }
  *kept = element;
  return true;
}

std::shared_ptr<XmlArena> XMLElement::Arena() const {
  for (const XMLElement* element = this; element; element = element->m_parent) {
    if (element->m_rare && element->m_rare->arena) return element->m_rare->arena;
  }
  return nullptr;
}

void XMLElement::RemoveAllElements() {
  std::vector<XMLElement*> pending;
  TakeTouchedChildren(pending);
  for (XMLElement* child : pending) delete child;
  ForEachText([](XMLTextNode* node) { node->m_position = 0; });
}

template <class Function>
void XMLElement::ForEachText(Function function) {
  const auto callUnlessEmpty = [&function](XMLTextNode* node) {
    if (node) function(node);
  };
  std::for_each(m_contents.begin(), m_contents.end(), callUnlessEmpty);
  if (!m_rare) return;
  std::for_each(m_rare->comments.begin(), m_rare->comments.end(), callUnlessEmpty);
  std::for_each(m_rare->cdatas.begin(), m_rare->cdatas.end(), callUnlessEmpty);
}

// Texts stay between the same children when one is inserted or removed at an index.
void XMLElement::ShiftTexts(unsigned after, int by) {
  ForEachText([after, by](XMLTextNode* node) {
    if (node->m_position > after) node->m_position += static_cast<unsigned>(by);
  });
}

XMLElement* XMLElement::Duplicate(XMLElement* parent) const {
  auto* top = new XMLElement(parent);
  std::vector<std::pair<const XMLElement*, XMLElement*>> pending{{this, top}};
  while (!pending.empty()) {
    const auto [from, to] = pending.back();
    pending.pop_back();
    from->CopyOwnTo(*to);
    to->m_children.Reserve(from->m_children.size());
    for (const XMLElement* child : from->m_children) {
      if (!child) continue;
      auto* copy = new XMLElement(to);
      copy->m_name.listed = true;
      to->m_children.Append(copy);
      pending.emplace_back(child, copy);
    }
  }
  return top;
}

// Everything but the children.
void XMLElement::CopyOwnTo(XMLElement& to) const {
  to.m_name.Set(name());
  CopyTextsTo(to);
  if (!m_rare) return;
  Rare& rare = to.MakeRare();
  for (const XMLVariable* variable : m_rare->variables) {
    if (variable) to.AddVariable(variable->name(), variable->value(), true);
  }
  rare.sideFile.Set(m_rare->sideFile.view());
  rare.param = m_rare->param;
  rare.type = m_rare->type;
  rare.indentCount = m_rare->indentCount;
  rare.spaces = m_rare->spaces;
}

void XMLElement::CopyTextsTo(XMLElement& to) const {
  const auto copyList = [&to](auto** nodes, unsigned count, auto& list) {
    for (unsigned i = 0; i < count; ++i) {
      if (!nodes[i]) continue;
      auto* copy = nodes[i]->Duplicate();
      to.AddText(list, copy);
      copy->m_order = nodes[i]->m_order;
      copy->m_position = nodes[i]->m_position;
    }
  };
  copyList(GetContents(), GetContentsNum(), to.m_contents);
  if (!m_rare) return;
  copyList(GetComments(), GetCommentsNum(), to.MakeRare().comments);
  copyList(GetCDatas(), GetCDatasNum(), to.MakeRare().cdatas);
}

// --- attributes ---

unsigned XMLElement::AddVariable(XMLVariable* variable) {
  if (!variable || variable->m_name.listed) return GetVariableNum();
  XmlList<XMLVariable, 20>& list = MakeRare().variables;
  list.Append(variable);
  variable->m_owner = this;
  variable->m_name.listed = true;
  return list.size();
}

XMLVariable* XMLElement::AddVariable(std::string_view name, std::string_view value, bool raw) {
  auto* variable = new XMLVariable(name, value, raw);
  AddVariable(variable);
  return variable;
}

bool XMLElement::RemoveVariable(unsigned index) {
  return index < GetVariableNum() && RemoveAt(m_rare->variables, index);
}

bool XMLElement::RemoveVariableAndKeep(unsigned index, XMLVariable** kept) {
  if (index >= GetVariableNum()) return false;
  XMLVariable* variable = m_rare->variables.Take(index);
  *kept = variable;
  if (!variable) return true;
  variable->m_owner = nullptr;
  variable->m_name.listed = false;
  if (!variable->m_name.inArena) return true;
  *kept = variable->Duplicate();
  Delete(variable);
  return true;
}

void XMLElement::RemoveAllVariables() {
  if (m_rare) RemoveAll(m_rare->variables);
}

XMLVariable* XMLElement::FindVariableZ(std::string_view name, std::string_view value) {
  const int index = FindVariable(name);
  return index >= 0 ? m_rare->variables[static_cast<size_t>(index)] : AddVariable(name, value);
}

// --- texts ---

uint32_t XMLElement::NextOrder() const {
  const XMLTextNode* last[] = {m_contents.back(), m_rare ? m_rare->comments.back() : nullptr,
                               m_rare ? m_rare->cdatas.back() : nullptr};
  uint32_t next = 0;
  for (const XMLTextNode* node : last) {
    if (node) next = std::max(next, node->m_order + 1);
  }
  return next;
}

template <class List, class Node>
unsigned XMLElement::AddText(List& list, Node* node) {
  if (!node || node->m_text.listed) return list.size();
  node->m_order = NextOrder();
  node->m_position = std::min(node->m_position, m_children.size());
  node->m_owner = this;
  node->m_text.listed = true;
  list.Append(node);
  Touch();
  return list.size();
}

template <class List>
bool XMLElement::RemoveAt(List& list, unsigned index) {
  if (index >= list.size()) return false;
  Delete(list.Take(index));
  return true;
}

template <class List>
void XMLElement::RemoveAll(List& list) {
  for (auto* node : list) Delete(node);
  list.Clear();
}

unsigned XMLElement::AddContent(XMLContent* content) {
  return AddText(m_contents, content);
}

XMLContent* XMLElement::AddContent(std::string_view text, unsigned position, bool raw) {
  auto* content = new XMLContent(nullptr, position, text, raw);
  AddContent(content);
  return content;
}

unsigned XMLElement::AddComment(XMLComment* comment) {
  return AddText(MakeRare().comments, comment);
}

XMLComment* XMLElement::AddComment(std::string_view text, unsigned position) {
  auto* comment = new XMLComment(nullptr, position, text);
  AddComment(comment);
  return comment;
}

unsigned XMLElement::AddCData(XMLCData* cdata) {
  return AddText(MakeRare().cdatas, cdata);
}

XMLCData* XMLElement::AddCData(std::string_view text, unsigned position) {
  auto* cdata = new XMLCData(nullptr, position, text);
  AddCData(cdata);
  return cdata;
}

bool XMLElement::RemoveContent(unsigned index) {
  return RemoveAt(m_contents, index);
}

bool XMLElement::RemoveComment(unsigned index) {
  return m_rare && RemoveAt(m_rare->comments, index);
}

bool XMLElement::RemoveCData(unsigned index) {
  return m_rare && RemoveAt(m_rare->cdatas, index);
}

void XMLElement::RemoveAllContents() {
  RemoveAll(m_contents);
}

void XMLElement::RemoveAllComments() {
  if (m_rare) RemoveAll(m_rare->comments);
}

void XMLElement::RemoveAllCDatas() {
  if (m_rare) RemoveAll(m_rare->cdatas);
}
