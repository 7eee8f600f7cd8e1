// An element's life, its name and the lookups.
#include "Common/xml/XmlElement.h"

#include <algorithm>

#include "Common/StringUtil.h"
#include "Common/xml/XmlDocument.h"
#include "Common/xml/XmlText.h"

XMLElement::XMLElement(XMLElement* parent, std::string_view tag, int type) : m_parent(parent) {
  m_name.touched = true;
  Reparse(tag, type);
}

XMLElement::~XMLElement() {
  // Elements whose memory is an arena's are destroyed before the arena is let go of.
  std::vector<std::shared_ptr<XmlArena>> arenas;
  std::vector<XMLElement*> pending;
  TakeTouchedChildren(pending);
  while (!pending.empty()) {
    XMLElement* element = pending.back();
    pending.pop_back();
    element->TakeTouchedChildren(pending);
    if (element->m_rare && element->m_rare->arena) arenas.push_back(std::move(element->m_rare->arena));
    delete element;
  }
  for (XMLContent* content : m_contents) Delete(content);
  if (!m_rare) return;
  for (XMLVariable* variable : m_rare->variables) Delete(variable);
  for (XMLComment* comment : m_rare->comments) Delete(comment);
  for (XMLCData* cdata : m_rare->cdatas) Delete(cdata);
  Delete(m_rare);
}

void XMLElement::operator delete(XMLElement* element, std::destroying_delete_t) {
  const std::shared_ptr<XmlArena> arena = element->m_rare ? std::move(element->m_rare->arena) : nullptr;
  const bool inArena = element->m_name.inArena;
  element->~XMLElement();
  if (!inArena) ::operator delete(element);
}

// The rest needs no destroying: all of it lies in an arena.
void XMLElement::TakeTouchedChildren(std::vector<XMLElement*>& out) {
  for (XMLElement* child : m_children) {
    if (child && child->m_name.touched) out.push_back(child);
  }
  m_children.Clear();
}

void XMLElement::Touch() {
  for (XMLElement* element = this; element && !element->m_name.touched; element = element->m_parent) {
    element->m_name.touched = true;
  }
}

XMLElement::Rare& XMLElement::MakeRare() {
  Touch();
  if (!m_rare) m_rare = new Rare;
  return *m_rare;
}

void XMLElement::Reparse(std::string_view given, int type) {
  const std::string copy(given);  // what is given may be this element's own
  std::string_view tag = copy;
  RemoveAllVariables();
  RemoveAllElements();
  RemoveAllComments();
  Touch();
  if (type != 0) {
    MakeRare().type = type;
    m_name.Set(XML::XMLEncode(tag));
    return;
  }
  if (m_rare) m_rare->type = type;
  if (tag.starts_with('<')) tag.remove_prefix(1);
  bool plain = true;
  const std::string_view name = xmltext::TakeName(tag, &plain);
  m_name.Set(plain ? name : xmltext::StoredName(name));
  std::string_view key;
  std::string_view value;
  while (xmltext::TakeVariable(tag, key, value)) AddVariable(key, value, true);
}

// --- the element itself ---

size_t XMLElement::GetElementName(char* buffer, size_t size, bool raw) const {
  return raw ? xmltext::CopyOut(name(), buffer, size) : XML::XMLDecode(name(), buffer, size);
}

std::string XMLElement::GetElementName(bool raw) const {
  return raw ? std::string(name()) : XML::XMLDecode(name());
}

void XMLElement::SetElementName(std::string_view name, bool raw) {
  m_name.Set(raw ? name : XML::XMLEncode(name));
  Touch();
}

void XMLElement::SetParent(XMLElement* parent) {
  Touch();
  if (parent) parent->Touch();
  m_parent = parent;
}

unsigned XMLElement::GetDeep() const {
  unsigned deep = 0;
  for (const XMLElement* parent = m_parent; parent; parent = parent->m_parent) ++deep;
  return deep;
}

// --- lookups ---

int XMLElement::FindElement(std::string_view name) const {
  for (unsigned i = 0; i < m_children.size(); ++i) {
    if (m_children[i] && xmltext::ReadsAs(m_children[i]->name(), name)) return static_cast<int>(i);
  }
  return -1;
}

int XMLElement::FindElement(const XMLElement* child) const {
  const auto found = std::find(m_children.begin(), m_children.end(), child);
  return child && found != m_children.end() ? static_cast<int>(found - m_children.begin()) : -1;
}

XMLElement* XMLElement::GetChild(std::string_view name) const {
  const int index = FindElement(name);
  return index < 0 ? nullptr : m_children[static_cast<size_t>(index)];
}

bool XMLElement::GetContent(std::string& out) const {
  if (m_contents.size() == 0 || !m_contents[0]) return false;
  xmltext::Read(m_contents[0]->text(), out);
  return true;
}

bool XMLElement::GetContent(char* buffer, size_t size) const {
  if (m_contents.size() == 0 || !m_contents[0]) return false;
  m_contents[0]->GetValue(buffer, size);
  return true;
}

bool XMLElement::GetChildContent(std::string_view name, std::string& out) const {
  const XMLElement* child = GetChild(name);
  return child && child->GetContent(out);
}

bool XMLElement::GetChildContent(std::string_view name, char* buffer, size_t size) const {
  const XMLElement* child = GetChild(name);
  return child && child->GetContent(buffer, size);
}

namespace {
// Numbers and flags are read into a buffer of this size; longer texts are cut.
constexpr size_t kValueSize = 256;
}  // namespace

int32_t XMLElement::GetChildContentInt(std::string_view name, int32_t otherwise) const {
  char text[kValueSize];
  return GetChildContent(name, text) ? CStringUtil::ToInt(text) : otherwise;
}

bool XMLElement::GetChildContentBool(std::string_view name) const {
  char text[kValueSize];
  if (!GetChildContent(name, text)) return false;
  CStringUtil::ToLower(text);
  return std::string_view(text) == "true";
}

int XMLElement::FindVariable(std::string_view name) const {
  for (unsigned i = 0; i < GetVariableNum(); ++i) {
    if (m_rare->variables[i] && xmltext::ReadsAs(m_rare->variables[i]->name(), name)) return static_cast<int>(i);
  }
  return -1;
}

bool XMLElement::GetVariable(std::string_view name, std::string& out) const {
  const int index = FindVariable(name);
  if (index < 0) return false;
  xmltext::Read(m_rare->variables[static_cast<size_t>(index)]->value(), out);
  return true;
}

bool XMLElement::GetVariable(std::string_view name, char* buffer, size_t size) const {
  const int index = FindVariable(name);
  if (index < 0) return false;
  m_rare->variables[static_cast<size_t>(index)]->GetValue(buffer, size);
  return true;
}
