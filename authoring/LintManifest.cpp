// Traps of "update.xml": values that are cut, misread or ignored, and packages that reach no pen or in a wrong order.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <set>
#include <utility>

#include "Common/StringUtil.h"
#include "authoring/Lint.h"

namespace authoring {

namespace {

constexpr size_t kLongestAttribute = 255;  // a pen attribute is a text of 256 bytes with its NUL
constexpr size_t kLongestGuid = 15;        // as long as the fields of a pen's own record
constexpr size_t kLongestVersion = 15;
constexpr size_t kVersionParts = 5;  // further parts are not compared

template <typename Visit>
void ForEachGroup(const LintInput& input, Visit visit) {
  if (!input.manifest) return;
  for (const ManifestGroup& group : input.manifest->groups()) visit(group);
}

template <typename Visit>
void ForEachPackage(const LintInput& input, Visit visit) {
  ForEachGroup(input, [&](const ManifestGroup& group) {
    for (const ManifestPackage& package : group.packages) visit(group, package);
  });
}

// Visits the child of that name, if there is one, of every group and of every package.
template <typename Visit>
void ForEachVersion(const LintInput& input, Visit visit) {
  auto visitChild = [&visit](const SourceElement& element) {
    if (const SourceElement* child = element.Child("Version")) visit(*child);
  };
  ForEachGroup(input, [&](const ManifestGroup& group) { visitChild(*group.element); });
  ForEachPackage(input, [&](const ManifestGroup&, const ManifestPackage& package) { visitChild(*package.element); });
}

std::string LabelOf(const ManifestPackage& package) {
  std::string name = package.element->ChildText("Name");
  return name.empty() ? package.fileName : name;
}

bool IsFirmware(const ManifestPackage& package) {
  return package.element->ChildText("FileType") == "Firmware";
}

bool GoesByGuid(const ManifestPackage& package) {
  std::string type = package.element->ChildText("FileType");
  return type == "PenApp" || type == "PaperProduct";
}

std::optional<int> ParseNumber(std::string_view text) {
  int number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::vector<std::string> Split(const std::string& text, const char* delimiters) {
  std::vector<std::string> parts;
  CStringUtil::Split(text, delimiters, parts);
  return parts;
}

int TransferOrder(const ManifestPackage& package) {
  return CStringUtil::ToInt(package.element->ChildText("TransferOrder").c_str());
}

std::set<int> PenTypes(const ManifestGroup& group) {
  std::vector<int32_t> types;
  CStringUtil::SplitToInts(group.element->ChildText("PenTypes"), ",", types);
  return {types.begin(), types.end()};
}

// The pen types that the manifest tells apart and that receive the group; 0 stands for all the others.
class Receivers {
 public:
  explicit Receivers(const LintInput& input) : m_all{0} {
    ForEachGroup(input, [this](const ManifestGroup& group) { m_all.merge(PenTypes(group)); });
  }
  std::set<int> Of(const ManifestGroup& group) const {
    std::set<int> types = PenTypes(group);
    return types.contains(0) ? m_all : types;
  }

 private:
  std::set<int> m_all;
};

void MissingManifest(const LintInput& input, Findings& findings) {
  if (!input.update.present) {
    findings.Add(kManifestName, 0, "There is no \"update.xml\" at the top");
  } else if (!input.manifest) {
    findings.Add(kManifestName, 1, input.manifestFault);
  }
}

void AttributeTooLong(const LintInput& input, Findings& findings) {
  auto check = [&findings](const SourceElement& element, std::initializer_list<const char*> names) {
    for (const char* name : names) {
      const SourceElement* child = element.Child(name);
      if (!child || child->text.size() <= kLongestAttribute) continue;
      findings.Add(kManifestName, child->line,
                   fmt::format("\"{}\" has {} bytes; a pen keeps {}", name, child->text.size(), kLongestAttribute));
    }
  };
  ForEachGroup(input, [&](const ManifestGroup& group) { check(*group.element, {"Name", "Version", "Category"}); });
  ForEachPackage(input, [&](const ManifestGroup&, const ManifestPackage& package) {
    check(*package.element, {"Name", "Version"});
  });
}

void GuidTooLong(const LintInput& input, Findings& findings) {
  ForEachPackage(input, [&](const ManifestGroup&, const ManifestPackage& package) {
    const SourceElement* guid = package.element->Child("GUID");
    if (!guid || guid->text.size() <= kLongestGuid) return;
    findings.Add(kManifestName, guid->line,
                 fmt::format("The GUID \"{}\" has {} characters; a pen keeps {}, so the "
                             "package is never found on it again",
                             guid->text, guid->text.size(), kLongestGuid));
  });
}

void VersionTooLong(const LintInput& input, Findings& findings) {
  ForEachVersion(input, [&](const SourceElement& version) {
    if (version.text.size() <= kLongestVersion) return;
    findings.Add(kManifestName, version.line,
                 fmt::format("The version \"{}\" has {} characters; a pen keeps {}", version.text, version.text.size(),
                             kLongestVersion));
  });
}

void VersionTooManyParts(const LintInput& input, Findings& findings) {
  ForEachVersion(input, [&](const SourceElement& version) {
    size_t parts = Split(version.text, "._").size();
    if (parts <= kVersionParts) return;
    findings.Add(kManifestName, version.line,
                 fmt::format("The version \"{}\" has {} parts; only the first {} are "
                             "compared",
                             version.text, parts, kVersionParts));
  });
}

// The last part of a firmware version is a suffix such as "b2" and compares as 0 by design of the format.
void VersionPartNotANumber(const LintInput& input, Findings& findings) {
  auto check = [&findings](const SourceElement* version, size_t ignoredParts) {
    if (!version) return;
    std::vector<std::string> parts = Split(version->text, "._");
    parts.resize(parts.size() - std::min(parts.size(), ignoredParts));
    for (const std::string& part : parts) {
      if (ParseNumber(part)) continue;
      findings.Add(
          kManifestName, version->line,
          fmt::format("In the version \"{}\" only the leading digits of \"{}\" are compared", version->text, part));
    }
  };
  ForEachGroup(input, [&](const ManifestGroup& group) { check(group.element->Child("Version"), 0); });
  ForEachPackage(input, [&](const ManifestGroup&, const ManifestPackage& package) {
    check(package.element->Child("Version"), IsFirmware(package) ? 1 : 0);
  });
}

void GroupWithoutPenTypes(const LintInput& input, Findings& findings) {
  ForEachGroup(input, [&](const ManifestGroup& group) {
    if (!PenTypes(group).empty()) return;
    findings.Add(
        kManifestName, group.element->line,
        fmt::format("The group \"{}\" names no pen types and goes to no pen", group.element->ChildText("Name")));
  });
}

void GroupWithoutFileList(const LintInput& input, Findings& findings) {
  ForEachGroup(input, [&](const ManifestGroup& group) {
    if (group.element->Child("FileList")) return;
    findings.Add(
        kManifestName, group.element->line,
        fmt::format("The group \"{}\" has no \"FileList\" and so no packages", group.element->ChildText("Name")));
  });
}

void UnknownFileType(const LintInput& input, Findings& findings) {
  ForEachPackage(input, [&](const ManifestGroup&, const ManifestPackage& package) {
    std::string type = package.element->ChildText("FileType");
    if (type == "Firmware" || GoesByGuid(package)) return;
    const SourceElement* child = package.element->Child("FileType");
    findings.Add(kManifestName, child ? child->line : package.element->line,
                 fmt::format("The file type \"{}\" of \"{}\" is none that a pen takes", type, LabelOf(package)));
  });
}

void EqualTransferOrders(const LintInput& input, Findings& findings) {
  Receivers receivers(input);
  std::map<std::pair<int, int>, const ManifestPackage*> byTypeAndOrder;
  ForEachPackage(input, [&](const ManifestGroup& group, const ManifestPackage& package) {
    const ManifestPackage* other = nullptr;
    for (int type : receivers.Of(group)) {
      auto [place, isNew] = byTypeAndOrder.emplace(std::pair(type, TransferOrder(package)), &package);
      if (!isNew) other = place->second;
    }
    if (!other) return;
    findings.Add(kManifestName, package.element->line,
                 fmt::format("\"{}\" has the transfer order {} as \"{}\" in line {} has; which goes first is not fixed",
                             LabelOf(package), TransferOrder(package), LabelOf(*other), other->element->line));
  });
}

void FirmwareAfterApplications(const LintInput& input, Findings& findings) {
  Receivers receivers(input);
  std::map<int, int> firstApplication;  // the lowest transfer order of what is not firmware, by pen type
  ForEachPackage(input, [&](const ManifestGroup& group, const ManifestPackage& package) {
    if (IsFirmware(package)) return;
    for (int type : receivers.Of(group)) {
      auto place = firstApplication.emplace(type, TransferOrder(package)).first;
      place->second = std::min(place->second, TransferOrder(package));
    }
  });
  ForEachPackage(input, [&](const ManifestGroup& group, const ManifestPackage& package) {
    if (!IsFirmware(package)) return;
    std::set<int> types = receivers.Of(group);
    bool late = std::any_of(types.begin(), types.end(), [&](int type) {
      auto place = firstApplication.find(type);
      return place != firstApplication.end() && place->second < TransferOrder(package);
    });
    if (late)
      findings.Add(kManifestName, package.element->line,
                   fmt::format("The firmware \"{}\" is ordered after an application; only leading firmware is "
                               "installed",
                               LabelOf(package)));
  });
}

void DuplicateGuid(const LintInput& input, Findings& findings) {
  std::map<std::string, int> lines;
  ForEachPackage(input, [&](const ManifestGroup&, const ManifestPackage& package) {
    std::string guid = package.element->ChildText("GUID");
    if (guid.empty()) return;
    auto [place, isNew] = lines.emplace(guid, package.element->line);
    if (!isNew) {
      findings.Add(kManifestName, package.element->line,
                   fmt::format("The GUID \"{}\" is already that of the package in line {}", guid, place->second));
    }
  });
}

void PackageWithoutGuid(const LintInput& input, Findings& findings) {
  ForEachPackage(input, [&](const ManifestGroup&, const ManifestPackage& package) {
    if (!GoesByGuid(package) || !package.element->ChildText("GUID").empty()) return;
    findings.Add(kManifestName, package.element->line,
                 fmt::format("\"{}\" has no GUID, by which a pen's applications are told apart", LabelOf(package)));
  });
}

void PackageWithoutFile(const LintInput& input, Findings& findings) {
  ForEachPackage(input, [&](const ManifestGroup&, const ManifestPackage& package) {
    if (!package.fileName.empty()) return;
    findings.Add(kManifestName, package.element->line,
                 fmt::format("\"{}\" has no \"FileName\" and fails every verification", LabelOf(package)));
  });
}

void NotANumber(const LintInput& input, Findings& findings) {
  auto check = [&findings](const SourceElement& element, const char* name, const char* delimiters) {
    const SourceElement* child = element.Child(name);
    if (!child) return;
    for (const std::string& part : Split(child->text, delimiters)) {
      if (ParseNumber(part)) continue;
      findings.Add(kManifestName, child->line,
                   fmt::format("\"{}\" in \"{}\" is no number and counts as its leading "
                               "digits or 0",
                               part, name));
    }
  };
  ForEachGroup(input, [&](const ManifestGroup& group) { check(*group.element, "PenTypes", ","); });
  ForEachPackage(input, [&](const ManifestGroup&, const ManifestPackage& package) {
    check(*package.element, "TransferOrder", "");
    check(*package.element, "BuildNumber", "");
  });
}

void NotABoolean(const LintInput& input, Findings& findings) {
  ForEachGroup(input, [&](const ManifestGroup& group) {
    for (const char* name : {"System", "Locked", "Private"}) {
      const SourceElement* child = group.element->Child(name);
      std::string text = child ? LowerCase(child->text) : "false";
      if (text == "true" || text == "false") continue;
      findings.Add(kManifestName, child->line, fmt::format("\"{}\" is \"{}\", which counts as false", name, text));
    }
  });
}

void CheckNames(const SourceElement& element, const std::set<std::string_view>& known, Findings& findings) {
  std::set<std::string_view> seen;
  for (const SourceElement& child : element.children) {
    if (!known.contains(child.name)) {
      findings.Add(kManifestName, child.line, fmt::format("The element \"{}\" is not read here", child.name));
    } else if (!seen.insert(child.name).second) {
      findings.Add(kManifestName, child.line, fmt::format("Only the first \"{}\" is read here", child.name));
    }
  }
}

void ElementNotRead(const LintInput& input, Findings& findings) {
  static const std::set<std::string_view> kInRoot{"Description", "GroupList"};
  static const std::set<std::string_view> kInGroup{"Name",   "Description", "Category", "Version",  "Locale",  "Folder",
                                                   "System", "Locked",      "Private",  "PenTypes", "FileList"};
  static const std::set<std::string_view> kInPackage{"Name",   "FileName",      "GUID",        "Version",   "FileType",
                                                     "Action", "TransferOrder", "BuildNumber", "Properties"};
  if (!input.manifest) return;
  CheckNames(input.manifest->root(), kInRoot, findings);
  ForEachGroup(input, [&](const ManifestGroup& group) { CheckNames(*group.element, kInGroup, findings); });
  ForEachPackage(input, [&](const ManifestGroup&, const ManifestPackage& package) {
    CheckNames(*package.element, kInPackage, findings);
  });
}

void PropertyWithoutName(const LintInput& input, Findings& findings) {
  ForEachPackage(input, [&](const ManifestGroup&, const ManifestPackage& package) {
    const SourceElement* properties = package.element->Child("Properties");
    if (!properties) return;
    for (const SourceElement& property : properties->children) {
      const std::string* name = property.Attribute("name");
      if (name && !name->empty()) continue;
      findings.Add(kManifestName, property.line, "A property without the attribute \"name\" is dropped");
    }
  });
}

constexpr std::array kRules{
    LintRule{"missing-manifest", Severity::kError, MissingManifest,
             "Put an \"update.xml\" with a root element and a \"GroupList\" at the top; \"quarvel-bundle init\" writes "
             "one to start from."},
    LintRule{"attribute-too-long", Severity::kError, AttributeTooLong, "Shorten the text to 255 bytes."},
    LintRule{"guid-too-long", Severity::kError, GuidTooLong, "Use a GUID of at most 15 characters."},
    LintRule{"version-too-long", Severity::kError, VersionTooLong, "Use a version of at most 15 characters."},
    LintRule{"version-too-many-parts", Severity::kError, VersionTooManyParts, "Use at most five parts."},
    LintRule{"version-part-not-a-number", Severity::kWarning, VersionPartNotANumber,
             "Use numbers with full stops between them."},
    LintRule{"group-without-pen-types", Severity::kError, GroupWithoutPenTypes,
             "Add \"PenTypes\" with the types, or 0 for every pen."},
    LintRule{"group-without-file-list", Severity::kError, GroupWithoutFileList,
             "Add a \"FileList\" with the packages, or take the group out."},
    LintRule{"unknown-file-type", Severity::kWarning, UnknownFileType,
             "Use Firmware, PenApp or PaperProduct, in this spelling, unless the package is to stay on the desktop."},
    LintRule{"equal-transfer-orders", Severity::kWarning, EqualTransferOrders,
             "Give each package that goes to one pen a \"TransferOrder\" of its own."},
    LintRule{"firmware-after-applications", Severity::kError, FirmwareAfterApplications,
             "Give firmware the lowest \"TransferOrder\"."},
    LintRule{"duplicate-guid", Severity::kError, DuplicateGuid, "Give each package a GUID of its own."},
    LintRule{"package-without-guid", Severity::kError, PackageWithoutGuid, "Add a \"GUID\"."},
    LintRule{"package-without-file", Severity::kError, PackageWithoutFile,
             "Add a \"FileName\", or take the package out."},
    LintRule{"not-a-number", Severity::kError, NotANumber, "Write a whole number, without blanks."},
    LintRule{"not-a-boolean", Severity::kError, NotABoolean, "Write true or false."},
    LintRule{"element-not-read", Severity::kWarning, ElementNotRead,
             "Check the spelling (letter case counts), or take the element out."},
    LintRule{"property-without-name", Severity::kError, PropertyWithoutName,
             "Write name=\"...\" value=\"...\" in the property's tag."},
};

}  // namespace

std::span<const LintRule> ManifestRules() {
  return kRules;
}

}  // namespace authoring
