#include <algorithm>

#include "Common/StringUtil.h"
#include "Common/Xml.h"

XMLElement::XMLElement(XMLElement* parent, std::string_view tag) : m_parent(parent) {
  ReadName(tag);
  ReadVariables(tag);
}

void XMLElement::ReadName(std::string_view& tag) {
  // A line break does not end a name.
  const std::string_view run = tag.substr(0, tag.find_first_of(" /\t>\""));
  tag.remove_prefix(run.size());
  std::string name(run);
  std::erase(name, '<');
  m_name = XML::Encode(name);
}

void XMLElement::ReadVariables(std::string_view tag) {
  while (true) {
    tag.remove_prefix(std::min(tag.find_first_not_of(" \t"), tag.size()));
    if (tag.empty() || tag.front() == '>' || tag.front() == '/') return;
    const size_t equals = tag.find('=');
    if (equals == std::string_view::npos) return;
    const std::string_view name = tag.substr(0, equals);
    tag.remove_prefix(equals + 1);
    if (tag.starts_with('"')) tag.remove_prefix(1);
    const size_t quote = tag.find('"');
    if (quote == std::string_view::npos) return;
    m_variables.push_back({name, tag.substr(0, quote)});
    tag.remove_prefix(quote + 1);
  }
}

int XMLElement::FindElement(const char* name) const {
  for (size_t i = 0; i < m_children.size(); ++i) {
    if (m_children[i]->GetElementName() == name) return static_cast<int>(i);
  }
  return -1;
}

XMLElement* XMLElement::GetChild(const char* name) const {
  const int index = FindElement(name);
  return index < 0 ? nullptr : m_children[static_cast<size_t>(index)];
}

bool XMLElement::GetContent(std::string& out) const {
  if (m_contents.empty()) return false;
  out = XML::Decode(m_contents.front().text);
  return true;
}

bool XMLElement::GetChildContent(const char* name, std::string& out) const {
  const XMLElement* child = GetChild(name);
  return child && child->GetContent(out);
}

int32_t XMLElement::GetChildContentInt(const char* name, int32_t otherwise) const {
  std::string text;
  return GetChildContent(name, text) ? CStringUtil::ToInt(text.c_str()) : otherwise;
}

bool XMLElement::GetChildContentBool(const char* name) const {
  std::string text;
  if (!GetChildContent(name, text)) return false;
  CStringUtil::ToLower(text);
  return text == "true";
}

int XMLElement::FindVariable(const char* name) const {
  const auto found = std::find_if(m_variables.begin(), m_variables.end(),
                                  [name](const XMLVariable& variable) { return XML::Decode(variable.name) == name; });
  return found == m_variables.end() ? -1 : static_cast<int>(found - m_variables.begin());
}

bool XMLElement::GetVariable(const char* name, std::string& out) const {
  const int index = FindVariable(name);
  if (index < 0) return false;
  out = XML::Decode(m_variables[static_cast<size_t>(index)].value);
  return true;
}

std::string XMLElement::GetElementName() const {
  return XML::Decode(m_name);
}
