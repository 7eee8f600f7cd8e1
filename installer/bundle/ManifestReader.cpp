// The manifest "update.xml": groups, their packages and what a pen is told about them.
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "Common/Logger_mac.h"
#include "Common/StringUtil.h"
#include "Common/Workers.h"
#include "Common/Xml.h"
#include "installer/bundle/Bundle.h"
#include "installer/bundle/BundlePaths.h"

namespace {

// Bytes of a manifest's text: one of a hundred thousand packages has a sixth of this.
constexpr uint64_t kLargestManifest = uint64_t{256} << 20;

int32_t LowBits(uint64_t size) {
  return static_cast<int32_t>(static_cast<uint32_t>(size));
}

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
  const InsResCode signatures = LoadDRM();
  if (signatures != insSuccess) return signatures;
  Z<char> text(0);
  size_t size = 0;
  const InsResCode read = ReadManifest("ParseBundle", "update.xml", text, &size);
  if (read != insSuccess) return read;
  XML document;
  if (size > 0) {
    // What is verified later must be what is parsed here.
    CVerifier::DigestBytes({static_cast<const char*>(text), size}, m_manifestDigest);
    document.LoadText(std::move(text));
  }
  return ParseGroups(document);
}

InsResCode CBundle::ReadManifest(const char* tag, const char* name, Z<char>& text, size_t* size) {
  const UniqueFd file = m_folder->tree().OpenFile(name);
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return insSuccess;
  if (static_cast<uint64_t>(status.st_size) > kLargestManifest) {
    g_Logger.LogEvent(tag, "File %s is too large: %llu bytes, at most %llu are read", name,
                      static_cast<unsigned long long>(status.st_size),
                      static_cast<unsigned long long>(kLargestManifest));
    return insBadManifest;
  }
  const auto whole = static_cast<size_t>(status.st_size);
  text = Z<char>(whole + XML::kSlack);
  size_t done = 0;
  while (done < whole) {
    const ssize_t got = read(file.get(), static_cast<char*>(text) + done, whole - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;  // it has become shorter: the rest is zero
    done += static_cast<size_t>(got);
  }
  *size = done;
  return insSuccess;
}

InsResCode CBundle::ParseGroups(const XML& document) {
  const XMLElement* root = document.HasDefaultRoot() ? nullptr : document.GetRootElement();
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
  std::vector<DeferredLog> logs(m_groups.size());
  // A group that cannot be read to its end stays with what was read.
  CWorkers::Share(m_groups.size(), [&](size_t i) { ParseGroup(list->GetChildren()[i], m_groups[i], logs[i]); });
  for (const DeferredLog& log : logs) log.WriteTo(g_Logger);
  return insSuccess;
}

InsResCode CBundle::ParseGroup(const XMLElement* element, BundleGroup& group, DeferredLog& log) {
  if (!element) {
    log.LogEventText("ParseGroup", "Invalid Group");
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
    log.LogEventText("ParseGroup", "Not found \"FileList\"");
    return insBadManifest;
  }
  group.packages.clear();
  group.packages.resize(files->GetChildrenNum());
  for (unsigned i = 0; i < files->GetChildrenNum(); ++i) {
    group.packages[i].group = &group;
    const InsResCode result = ParsePackage(files->GetChildren()[i], group.folder, group.packages[i], log);
    if (result != insSuccess) return result;
  }
  // Mostly they stand in their order already.
  if (!std::is_sorted(group.packages.begin(), group.packages.end(), CompareBndPak)) {
    std::stable_sort(group.packages.begin(), group.packages.end(), CompareBndPak);
  }
  return insSuccess;
}

InsResCode CBundle::ParsePackage(const XMLElement* element, const std::string& folder, BundlePackage& package,
                                 DeferredLog& log) {
  if (!element) {
    log.LogEventText("ParsePackage", "Invalid Package");
    return insBadManifest;
  }
  element->GetChildContent("Name", package.name);
  std::string fileName;
  if (element->GetChildContent("FileName", fileName)) {
    package.bundlePath = folder + "/" + fileName;
    const std::string inside = PathInside(package.bundlePath);
    package.localPath = m_extractFolder + "/" + inside;
    package.drmInfo = GetDRMInfo(package.bundlePath);
    package.fileSize = LowBits(SizeOf(inside));
    if (LeadsOut(inside)) {
      log.LogEventText("ParsePackage", "Package " + package.bundlePath + " leads out of the bundle and is not opened");
    }
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
