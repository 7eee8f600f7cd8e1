// Order, comparison and housekeeping of elements.
#include <algorithm>

#include "Common/XmlElement.h"

bool XMLElement::IntegrityTest() const {
  const auto belongs = [](const auto& nodes, const XMLElement* element, auto ownerOf) {
    return std::all_of(nodes.begin(), nodes.end(),
                       [&](const auto* node) { return !node || ownerOf(*node) == element; });
  };
  std::vector<const XMLElement*> pending{this};
  while (!pending.empty()) {
    const XMLElement* element = pending.back();
    pending.pop_back();
    const auto isText = [element](const XMLTextNode& node) {
      return node.m_position <= element->m_children.size() ? node.m_owner : nullptr;
    };
    if (!belongs(element->m_contents, element, isText)) return false;
    if (!belongs(element->m_children, element, [](const XMLElement& child) { return child.m_parent; })) return false;
    if (!element->HasDistinctChildren()) return false;
    if (const Rare* rare = element->m_rare) {
      if (!belongs(rare->comments, element, isText) || !belongs(rare->cdatas, element, isText)) return false;
      if (!belongs(rare->variables, element, [](const XMLVariable& v) { return v.m_owner; })) return false;
    }
    for (const XMLElement* child : element->m_children) {
      if (child == this) return false;
      if (child) pending.push_back(child);
    }
  }
  return true;
}

bool XMLElement::HasDistinctChildren() const {
  std::vector<const XMLElement*> children(m_children.begin(), m_children.end());
  std::erase(children, nullptr);
  std::sort(children.begin(), children.end());
  return std::adjacent_find(children.begin(), children.end()) == children.end();
}

std::vector<XMLElement*> XMLElement::GetAllChildren() const {
  std::vector<XMLElement*> all;
  std::vector<XMLElement*> pending(std::make_reverse_iterator(m_children.end()),
                                   std::make_reverse_iterator(m_children.begin()));
  while (!pending.empty()) {
    XMLElement* element = pending.back();
    pending.pop_back();
    if (!element) continue;
    all.push_back(element);
    for (uint32_t i = element->m_children.size(); i > 0; --i) pending.push_back(element->m_children[i - 1]);
  }
  return all;
}
