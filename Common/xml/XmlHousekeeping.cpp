// Order, comparison, size and integrity of trees.
#include <algorithm>
#include <iterator>

#include "Common/xml/XmlDocument.h"
#include "Common/xml/XmlElement.h"

// --- everything below an element ---

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

unsigned XMLElement::GetAllChildrenNum() const {
  return static_cast<unsigned>(GetAllChildren().size());
}

// --- comparison ---

namespace {

template <class Node>
bool HaveSameNodes(Node** a, unsigned aCount, Node** b, unsigned bCount) {
  return std::equal(a, a + aCount, b, b + bCount,
                    [](const Node* x, const Node* y) { return x && y ? x->Compare(*y) : x == y; });
}

}  // namespace

bool XMLElement::HasSameOwn(const XMLElement& other) const {
  return name() == other.name() &&
         HaveSameNodes(GetVariables(), GetVariableNum(), other.GetVariables(), other.GetVariableNum()) &&
         HaveSameNodes(GetContents(), GetContentsNum(), other.GetContents(), other.GetContentsNum()) &&
         HaveSameNodes(GetComments(), GetCommentsNum(), other.GetComments(), other.GetCommentsNum()) &&
         HaveSameNodes(GetCDatas(), GetCDatasNum(), other.GetCDatas(), other.GetCDatasNum()) &&
         m_children.size() == other.m_children.size();
}

bool XMLElement::Compare(const XMLElement& other) const {
  std::vector<std::pair<const XMLElement*, const XMLElement*>> pending{{this, &other}};
  while (!pending.empty()) {
    const auto [a, b] = pending.back();
    pending.pop_back();
    if (!a || !b) {
      if (a != b) return false;
      continue;
    }
    if (!a->HasSameOwn(*b)) return false;
    for (unsigned i = 0; i < a->m_children.size(); ++i) pending.emplace_back(a->m_children[i], b->m_children[i]);
  }
  return true;
}

bool XML::Compare(const XML& other) const {
  const auto haveSameComments = [&](unsigned part) {
    std::string mine;
    std::string theirs;
    m_header->ExportComments(mine, part);
    other.m_header->ExportComments(theirs, part);
    return mine == theirs;
  };
  if (!haveSameComments(0) || !haveSameComments(1)) return false;
  if (!m_root || !other.m_root) return m_root == other.m_root;
  return m_root->Compare(*other.m_root);
}

// --- order ---

int XMLElementfcmp(const XMLElement* a, const XMLElement* b) {
  return a->GetElementName().compare(b->GetElementName());
}

int XMLVariablefcmp(const XMLVariable* a, const XMLVariable* b) {
  return a->GetName().compare(b->GetName());
}

namespace {

// Empty slots go to the end.
template <class Node, class Compare>
void Sort(Node** items, uint32_t count, const Compare& compare) {
  std::stable_sort(items, items + count, [&compare](const Node* a, const Node* b) {
    if (!a || !b) return a != nullptr && b == nullptr;
    return compare(a, b) < 0;
  });
}

}  // namespace

void XMLElement::SortElements(const ElementCompare& compare) {
  Sort(m_children.data(), m_children.size(), compare);
}

void XMLElement::SortVariables(const VariableCompare& compare) {
  Sort(GetVariables(), GetVariableNum(), compare);
}

// --- size ---

size_t XMLElement::OwnMemory() const {
  const auto nodes = [](const auto& list) {
    size_t bytes = list.bytes();
    for (const auto* node : list) bytes += node ? node->MemoryUsage() : 0;
    return bytes;
  };
  const size_t bytes = sizeof(*this) + m_name.bytes() + m_children.bytes() + nodes(m_contents);
  if (!m_rare) return bytes;
  return bytes + sizeof(Rare) + m_rare->sideFile.bytes() + nodes(m_rare->variables) + nodes(m_rare->comments) +
         nodes(m_rare->cdatas);
}

size_t XMLElement::MemoryUsage() const {
  size_t bytes = OwnMemory();
  for (const XMLElement* element : GetAllChildren()) bytes += element->OwnMemory();
  return bytes;
}

size_t XML::MemoryUsage() const {
  return sizeof(*this) + m_fileName.size() + m_header->MemoryUsage() + (m_root ? m_root->MemoryUsage() : 0);
}

void XMLElement::CompressMemory() {
  std::vector<XMLElement*> all = GetAllChildren();
  all.push_back(this);
  for (XMLElement* element : all) {
    element->m_children.Shrink();
    element->m_contents.Shrink();
    if (!element->m_rare) continue;
    element->m_rare->variables.Shrink();
    element->m_rare->comments.Shrink();
    element->m_rare->cdatas.Shrink();
  }
}

void XML::CompressMemory() {
  if (m_root) m_root->CompressMemory();
}

void XMLElement::SpaceForElements(unsigned more) {
  Touch();
  m_children.Reserve(m_children.size() + more);
}

void XMLElement::SpaceForContents(unsigned more) {
  Touch();
  m_contents.Reserve(m_contents.size() + more);
}

void XMLElement::SpaceForVariables(unsigned more) {
  MakeRare().variables.Reserve(GetVariableNum() + more);
}

void XMLElement::SpaceForComments(unsigned more) {
  MakeRare().comments.Reserve(GetCommentsNum() + more);
}

void XMLElement::SpaceForCDatas(unsigned more) {
  MakeRare().cdatas.Reserve(GetCDatasNum() + more);
}

// --- integrity ---

namespace {

template <class List, class OwnerOf>
bool AllBelongTo(const XMLElement* element, const List& nodes, OwnerOf ownerOf) {
  return std::all_of(nodes.begin(), nodes.end(), [&](const auto* node) { return !node || ownerOf(*node) == element; });
}

}  // namespace

bool XMLElement::HasWholeLists() const {
  const auto ownerOfText = [this](const XMLTextNode& node) {
    return node.m_position <= m_children.size() ? node.m_owner : nullptr;
  };
  if (!AllBelongTo(this, m_children, [](const XMLElement& child) { return child.m_parent; })) return false;
  if (!AllBelongTo(this, m_contents, ownerOfText)) return false;
  std::vector<const XMLElement*> children(m_children.begin(), m_children.end());
  std::erase(children, nullptr);
  std::sort(children.begin(), children.end());
  if (std::adjacent_find(children.begin(), children.end()) != children.end()) return false;
  if (!m_rare) return true;
  return AllBelongTo(this, m_rare->comments, ownerOfText) && AllBelongTo(this, m_rare->cdatas, ownerOfText) &&
         AllBelongTo(this, m_rare->variables, [](const XMLVariable& variable) { return variable.m_owner; });
}

bool XMLElement::IntegrityTest() const {
  std::vector<const XMLElement*> pending{this};
  while (!pending.empty()) {
    const XMLElement* element = pending.back();
    pending.pop_back();
    if (!element->HasWholeLists()) return false;
    for (const XMLElement* child : element->m_children) {
      if (child == this) return false;
      if (child) pending.push_back(child);
    }
  }
  return true;
}
