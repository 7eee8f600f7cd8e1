// Moving the inside of an element to a side file and back.
#include <cstdio>
#include <string>

#include "Common/xml/XmlDocument.h"

bool XMLElement::UnloadElement(unsigned index, const char* path) {
  XMLElement* child = index < m_children.size() ? m_children[index] : nullptr;
  if (!child || !path || child->IsUnloaded()) return false;
  XML document;
  document.SetRootElement(child->Copy());
  if (!document.Save(path, false)) return false;
  child->MakeRare().sideFile.Set(path);  // first of all: the path may be one of the texts
  child->RemoveAllElements();
  child->RemoveAllContents();
  child->RemoveAllComments();
  child->RemoveAllCDatas();
  return true;
}

bool XMLElement::ReloadElement(unsigned index) {
  XMLElement* child = index < m_children.size() ? m_children[index] : nullptr;
  if (!child || !child->IsUnloaded()) return false;
  XML document(std::string(child->m_rare->sideFile.view()).c_str(), 0);
  XMLElement* loaded = document.HasDefaultRoot() ? nullptr : document.GetRootElement();
  if (!loaded || document.ParseStatus() != 0) return false;
  child->RemoveAllElements();
  std::vector<XMLElement*> children(loaded->m_children.begin(), loaded->m_children.end());
  loaded->CopyTextsTo(*child);
  for (unsigned i = loaded->m_children.size(); i > 0; --i) loaded->RemoveElementAndKeep(i - 1, &children[i - 1]);
  for (XMLElement* element : children) child->m_children.Append(element);
  for (XMLElement* element : children) element->Join(*child);
  child->m_rare->sideFile.Set({});
  return true;
}

bool XMLElement::DeleteUnloadedElementFile(unsigned index) {
  XMLElement* child = index < m_children.size() ? m_children[index] : nullptr;
  if (!child || !child->IsUnloaded()) return false;
  const bool removed = std::remove(std::string(child->m_rare->sideFile.view()).c_str()) == 0;
  child->m_rare->sideFile.Set({});
  return removed;
}
