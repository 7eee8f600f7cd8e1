// The manifest "update.xml": groups, their packages and what a pen is told about them.
#include <string.h>

#include <algorithm>
#include <optional>

#include "Common/Logger_mac.h"
#include "Common/StringUtil.h"
#include "Common/Workers.h"
#include "Common/Xml.h"
#include "installer/bundle/Bundle.h"

namespace {

BndPakTypes TypeOf(const std::string& fileType) {
  if (fileType == "Firmware") return BndPakFirmware;
  if (fileType == "PenApp") return BndPakPenApp;
  if (fileType == "PaperProduct") return BndPakPaperProduct;
  return BndPakUnknown;
}

// Fills the next of a record's attributes, cutting the text to what the pen's record holds.
template <class Record>
void AddAttribute(Record& record, PenletAttributeId id, const std::string& text) {
  PenletAttribute& attribute = record.attribs[record.attribCount++];
  attribute.id = id;
  memcpy(attribute.value, text.data(), std::min(text.size(), sizeof(attribute.value) - 1));
}

template <class Record>
void AddAttributeIfSet(Record& record, PenletAttributeId id, const std::string& text) {
  if (!text.empty()) AddAttribute(record, id, text);
}

template <class Record>
void ClearAttributes(Record& record) {
  record.attribCount = 0;
  memset(record.attribs, 0, sizeof(record.attribs));
}

void ReadProperties(const XMLElement* element, std::vector<BundlePackageProperty>& out) {
  XMLElement* const* children = element->GetChildren();
  for (unsigned i = 0; i < element->GetChildrenNum(); ++i) {
    BundlePackageProperty property;
    children[i]->GetVariable("name", property.name);
    if (property.name.empty()) continue;
    children[i]->GetVariable("value", property.value);
    out.push_back(std::move(property));
  }
}

}  // namespace

InsResCode CBundle::ParseBundle() {
  // Both manifests are read at once; what this one says counts only when the other is good.
  InsResCode signatures = insSuccess;
  std::optional<XML> document;
  CWorkers::Share(2, [&](size_t manifest) {
    if (manifest == 0) signatures = LoadDRM();
    if (manifest == 1) document.emplace((m_extractFolder + "/update.xml").c_str(), 0);
  });
  if (signatures != insSuccess) return signatures;
  const XMLElement* root = document->HasDefaultRoot() ? nullptr : document->GetRootElement();
  if (!root) {
    g_Logger.LogEvent("ParseBundle", "Not found UPDATE root element");
    return insBadManifest;
  }
  root->GetChildContent("Description", m_description);
  const XMLElement* list = root->GetChild("GroupList");
  if (!list) {
    g_Logger.LogEvent("ParseBundle", "Not found \"GroupList\"");
    return insBadManifest;
  }
  // All groups are there before any is filled: packages keep their addresses.
  m_groups.clear();
  m_groups.resize(list->GetChildrenNum());
  // A group that cannot be read to its end stays with what was read.
  CWorkers::Share(m_groups.size(), [&](size_t i) { ParseGroup(list->GetChildren()[i], m_groups[i]); });
  return insSuccess;
}

InsResCode CBundle::ParseGroup(const XMLElement* element, BundleGroup& group) {
  if (!element) {
    g_Logger.LogEvent("ParseGroup", "Invalid Group");
    return insBadManifest;
  }
  element->GetChildContent("Name", group.name);
  element->GetChildContent("Description", group.description);
  element->GetChildContent("Category", group.category);
  element->GetChildContent("Version", group.version);
  element->GetChildContent("Locale", group.locale);
  element->GetChildContent("Folder", group.folder);
  if (group.folder.empty()) group.folder = "Files";
  group.isSystem = element->GetChildContentBool("System");
  group.isLocked = element->GetChildContentBool("Locked");
  group.isPrivate = element->GetChildContentBool("Private");
  std::string penTypes;
  if (element->GetChildContent("PenTypes", penTypes)) CStringUtil::SplitToInts(penTypes, ",", group.penTypes);

  ClearAttributes(group);
  AddAttribute(group, kAttribGroupPrivate, group.isPrivate ? "true" : "false");
  AddAttribute(group, kAttribGroupLocked, group.isLocked ? "true" : "false");
  AddAttributeIfSet(group, kAttribGroupName, group.name);
  AddAttributeIfSet(group, kAttribGroupVersion, group.version);
  AddAttributeIfSet(group, kAttribGroupCategory, group.category);

  const XMLElement* files = element->GetChild("FileList");
  if (!files) {
    g_Logger.LogEvent("ParseGroup", "Not found \"FileList\"");
    return insBadManifest;
  }
  group.packages.clear();
  group.packages.resize(files->GetChildrenNum());
  for (unsigned i = 0; i < files->GetChildrenNum(); ++i) {
    group.packages[i].group = &group;
    const InsResCode result = ParsePackage(files->GetChildren()[i], group.folder, group.packages[i]);
    if (result != insSuccess) return result;
  }
  // Mostly they stand in their order already.
  if (!std::is_sorted(group.packages.begin(), group.packages.end(), CompareBndPak)) {
    std::stable_sort(group.packages.begin(), group.packages.end(), CompareBndPak);
  }
  return insSuccess;
}

InsResCode CBundle::ParsePackage(const XMLElement* element, const std::string& folder, BundlePackage& package) {
  if (!element) {
    g_Logger.LogEvent("ParsePackage", "Invalid Package");
    return insBadManifest;
  }
  element->GetChildContent("Name", package.name);
  std::string fileName;
  if (element->GetChildContent("FileName", fileName)) {
    package.bundlePath = folder + "/" + fileName;
    package.localPath = m_extractFolder + "/" + package.bundlePath;
    std::replace(package.localPath.begin(), package.localPath.end(), '\\', '/');
    package.drmInfo = GetDRMInfo(package.bundlePath);
  }
  element->GetChildContent("GUID", package.guid);
  element->GetChildContent("Version", package.version);
  if (element->GetChildContent("FileType", package.fileType)) package.type = TypeOf(package.fileType);
  element->GetChildContent("Action", package.action);
  package.transferOrder = element->GetChildContentInt("TransferOrder", 0);
  package.buildNumber = element->GetChildContentInt("BuildNumber", 0);
  if (const XMLElement* properties = element->GetChild("Properties")) ReadProperties(properties, package.properties);

  ClearAttributes(package);
  AddAttributeIfSet(package, kAttribPackageName, package.name);
  AddAttributeIfSet(package, kAttribPackageVersion, package.version);
  return insSuccess;
}
