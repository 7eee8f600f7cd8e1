#include "Common/xml/XmlQuery.h"

#include <algorithm>
#include <charconv>
#include <unordered_set>

#include "Common/xml/XmlDocument.h"
#include "Common/xml/XmlText.h"

namespace {

// The end of the step at the text's start: the next "/" outside brackets.
size_t EndOfStep(std::string_view text) {
  bool inside = false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '[') inside = true;
    if (text[i] == ']') inside = false;
    if (text[i] == '/' && !inside) return i;
  }
  return text.size();
}

}  // namespace

XMLQuery::XMLQuery(std::string_view query) {
  while (m_valid && !query.empty()) {
    const size_t end = EndOfStep(query);
    const bool last = end == query.size();
    if (last && query.starts_with('@')) {
      m_attribute = query.substr(1);
      m_valid = !m_attribute.empty();
    } else {
      m_valid = ReadStep(query.substr(0, end)) && end + 1 != query.size();
    }
    query.remove_prefix(std::min(end + 1, query.size()));
  }
}

bool XMLQuery::ReadStep(std::string_view text) {
  Step step;
  const size_t bracket = text.find('[');
  step.name = text.substr(0, bracket);
  if (bracket != std::string_view::npos) {
    if (!text.ends_with(']')) return false;
    if (!ReadCondition(text.substr(bracket + 1, text.size() - bracket - 2), step)) return false;
  }
  if (step.name.empty() || step.name.starts_with('@')) return false;
  m_steps.push_back(std::move(step));
  return true;
}

bool XMLQuery::ReadCondition(std::string_view text, Step& step) {
  if (text.starts_with('@')) {
    const size_t equals = text.find('=');
    step.variable = text.substr(1, equals == std::string_view::npos ? equals : equals - 1);
    if (equals != std::string_view::npos) step.value = text.substr(equals + 1);
    return !step.variable.empty();
  }
  size_t index = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
  step.index = index;
  return error == std::errc() && end == text.data() + text.size();
}

bool XMLQuery::Step::Matches(const XMLElement& element) const {
  if (name != "*" && name != "**" && !xmltext::ReadsAs(element.name(), name)) return false;
  if (variable.empty()) return true;
  std::string found;
  return element.GetVariable(variable, found) && (!value || found == *value);
}

void XMLQuery::Step::Collect(XMLElement& parent, std::vector<XMLElement*>& out) const {
  std::vector<XMLElement*> candidates;
  if (name == "**") {
    candidates = parent.GetAllChildren();
    candidates.insert(candidates.begin(), &parent);
  } else {
    candidates.assign(parent.GetChildren(), parent.GetChildren() + parent.GetChildrenNum());
  }
  std::erase_if(candidates, [this](const XMLElement* element) { return !element || !Matches(*element); });
  if (!index) {
    out.insert(out.end(), candidates.begin(), candidates.end());
  } else if (*index < candidates.size()) {
    out.push_back(candidates[*index]);
  }
}

std::vector<XMLElement*> XMLQuery::Run(XMLElement& top) const {
  if (!m_valid) return {};
  std::vector<XMLElement*> matches{&top};
  for (const Step& step : m_steps) {
    std::vector<XMLElement*> next;
    for (XMLElement* match : matches) step.Collect(*match, next);
    // Below a "**" one element can be reached in several ways.
    std::unordered_set<const XMLElement*> seen;
    std::erase_if(next, [&seen](const XMLElement* element) { return !seen.insert(element).second; });
    matches = std::move(next);
  }
  if (!m_attribute.empty()) {
    std::erase_if(matches, [this](const XMLElement* match) { return match->FindVariable(m_attribute) < 0; });
  }
  return matches;
}

bool XMLQuery::GetValue(XMLElement& top, std::string& out) const {
  const std::vector<XMLElement*> matches = Run(top);
  if (matches.empty()) return false;
  return m_attribute.empty() ? matches[0]->GetContent(out) : matches[0]->GetVariable(m_attribute, out);
}

bool XMLQuery::SetValue(XMLElement& top, std::string_view value) const {
  if (!m_valid) return false;
  const std::vector<XMLElement*> matches = Run(top);
  XMLElement* target = matches.empty() ? &top : matches[0];
  if (matches.empty()) {
    if (!std::all_of(m_steps.begin(), m_steps.end(), [](const Step& step) { return step.IsPlain(); })) return false;
    for (const Step& step : m_steps) target = target->FindElementZ(step.name);
  }
  if (!m_attribute.empty()) {
    target->FindVariableZ(m_attribute)->SetValue(value);
  } else if (target->GetContentsNum() > 0) {
    target->GetContents()[0]->SetValue(value);
  } else {
    target->AddContent(value, 0);
  }
  return true;
}

// --- paths: names parted by backslashes ---

XMLElement* XMLElement::FindElementZ(std::string_view name, bool create) {
  XMLElement* child = GetChild(name);
  return child || !create ? child : AddElement(name);
}

XMLElement* XMLElement::GetElementInSection(std::string_view path, bool create) {
  XMLElement* element = this;
  while (element && !path.empty()) {
    const std::string_view name = path.substr(0, path.find('\\'));
    path.remove_prefix(std::min(name.size() + 1, path.size()));
    if (!name.empty()) element = element->FindElementZ(name, create);
  }
  return element;
}

namespace {

// The path from the top down to an element, each step made by `stepOf`.
template <class StepOf>
std::string PathOf(const XMLElement* element, StepOf stepOf) {
  std::vector<const XMLElement*> way;
  for (; element; element = element->GetParent()) way.push_back(element);
  std::string path;
  for (auto step = way.rbegin(); step != way.rend(); ++step) path.append(1, '\\').append(stepOf(**step));
  return path;
}

}  // namespace

std::string XMLElement::GetElementFullName() const {
  return PathOf(this, [](const XMLElement& element) { return element.GetElementName(); });
}

std::string XMLElement::GetElementUniqueString() const {
  return PathOf(this, [](const XMLElement& element) {
    const XMLElement* parent = element.GetParent();
    return element.GetElementName() + "[" + std::to_string(parent ? parent->FindElement(&element) : 0) + "]";
  });
}

bool XML::XMLGetValue(std::string_view path, std::string& out) const {
  return m_root && XMLQuery(path).GetValue(*m_root, out);
}

bool XML::XMLSetValue(std::string_view path, std::string_view value) {
  return m_root && XMLQuery(path).SetValue(*m_root, value);
}
