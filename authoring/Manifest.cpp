#include "authoring/Manifest.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "Common/StringUtil.h"
#include "authoring/Failure.h"

namespace authoring {

namespace {

ManifestGroup ReadGroup(const SourceElement& element) {
  ManifestGroup group{&element, element.ChildText("Folder"), {}};
  if (group.folder.empty()) group.folder = "Files";
  const SourceElement* files = element.Child("FileList");
  if (!files) return group;
  for (const SourceElement& package : files->children) {
    group.packages.push_back({&package, group.folder, package.ChildText("FileName")});
  }
  return group;
}

}  // namespace

std::string ManifestPackage::Member() const {
  std::string member = folder + "/" + fileName;
  std::replace(member.begin(), member.end(), '\\', '/');
  return member;
}

Manifest::Manifest(std::string_view text, const std::string& origin) {
  std::optional<SourceElement> root = ParseSource(text);
  if (!root) {
    throw Failure(ExitStatus::kFile, fmt::format("{} has no complete root element; close every tag in it.", origin));
  }
  m_root = std::move(*root);
  const SourceElement* list = m_root.Child("GroupList");
  if (!list) {
    throw Failure(ExitStatus::kFile,
                  fmt::format("{} has no \"GroupList\" in its root element; add one with a group for each "
                              "set of packages.",
                              origin));
  }
  for (const SourceElement& element : list->children) m_groups.push_back(ReadGroup(element));
}

std::vector<const ManifestPackage*> Manifest::FilePackages() const {
  std::vector<const ManifestPackage*> packages;
  std::set<std::string> seen;
  for (const ManifestGroup& group : m_groups) {
    for (const ManifestPackage& package : group.packages) {
      if (!package.fileName.empty() && seen.insert(package.Member()).second) packages.push_back(&package);
    }
  }
  return packages;
}

std::string LowerCase(std::string text) {
  CStringUtil::ToLower(text);
  return text;
}

}  // namespace authoring
