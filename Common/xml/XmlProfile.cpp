#include "Common/xml/XmlProfile.h"

#include <algorithm>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "Common/StringUtil.h"
#include "Common/xml/XmlText.h"

namespace {

// Numbers are read through a buffer of this size.
constexpr size_t kNumberSize = 100;

// The document that a call works on: the caller's, or the file's for the time of the call.
class Profile {
 public:
  Profile(const char* file, XML* document) : m_file(file), m_document(document) {
    if (m_document) return;
    m_loaded = std::make_unique<XML>(file, 0);
    m_document = m_loaded.get();
  }

  XMLElement* Find(std::string_view section, bool create = false) const {
    constexpr int kUnclosed = 2;
    if (create && m_document->ParseStatus() == kUnclosed) return nullptr;
    XMLElement* root = m_document->GetRootElement();
    return root ? root->GetElementInSection(section, create) : nullptr;
  }
  bool Save() const { return m_document->Save(m_file); }

 private:
  const char* m_file;
  XML* m_document;
  std::unique_ptr<XML> m_loaded;
};

bool SetVariable(const Profile& profile, XMLElement* element, std::string_view key, std::string_view value) {
  if (!element) return false;
  element->FindVariableZ(key)->SetValue(value);
  return profile.Save();
}

}  // namespace

size_t XMLGetString(std::string_view section, std::string_view key, const char* otherwise, char* out, size_t size,
                    const char* file, XML* document) {
  if (!out || size == 0) return 0;
  const Profile profile(file, document);
  const XMLElement* element = profile.Find(section);
  std::string value;
  if (!element || !element->GetVariable(key, value)) value = otherwise ? otherwise : "";
  return std::min(xmltext::CopyOut(value, out, size), size - 1);
}

int32_t XMLGetInt(std::string_view section, std::string_view key, int32_t otherwise, const char* file, XML* document) {
  char text[kNumberSize];
  const std::string unsignedText = std::to_string(static_cast<uint32_t>(otherwise));
  XMLGetString(section, key, unsignedText.c_str(), text, sizeof(text), file, document);
  return CStringUtil::ToInt(text);
}

float XMLGetFloat(std::string_view section, std::string_view key, float otherwise, const char* file, XML* document) {
  char text[kNumberSize];
  XMLGetString(section, key, std::to_string(otherwise).c_str(), text, sizeof(text), file, document);
  return std::strtof(text, nullptr);
}

bool XMLSetString(std::string_view section, std::string_view key, std::string_view value, const char* file,
                  XML* document) {
  const Profile profile(file, document);
  return SetVariable(profile, profile.Find(section, true), key, value);
}

bool XMLSetInt(std::string_view section, std::string_view key, int32_t value, const char* file, XML* document) {
  return XMLSetString(section, key, std::to_string(value), file, document);
}

bool XMLSetFloat(std::string_view section, std::string_view key, float value, const char* file, XML* document) {
  return XMLSetString(section, key, std::to_string(value), file, document);
}

bool XMLRenameElement(std::string_view section, std::string_view from, std::string_view to, const char* file,
                      XML* document) {
  const Profile profile(file, document);
  XMLElement* parent = profile.Find(section);
  XMLElement* child = parent ? parent->GetChild(from) : nullptr;
  if (!child) return false;
  child->SetElementName(to);
  return profile.Save();
}

size_t XMLGetAllVariables(std::string_view section, std::vector<std::string>& names, std::vector<std::string>& values,
                          const char* file) {
  names.clear();
  values.clear();
  const Profile profile(file, nullptr);
  const XMLElement* element = profile.Find(section);
  for (unsigned i = 0; element && i < element->GetVariableNum(); ++i) {
    names.push_back(element->GetVariables()[i]->GetName());
    values.push_back(element->GetVariables()[i]->GetValue());
  }
  return names.size();
}

size_t XMLGetAllItems(std::string_view section, std::vector<std::string>& names, const char* file) {
  names.clear();
  const Profile profile(file, nullptr);
  const XMLElement* element = profile.Find(section);
  for (unsigned i = 0; element && i < element->GetChildrenNum(); ++i) {
    names.push_back(element->GetChildren()[i]->GetElementName());
  }
  return names.size();
}
