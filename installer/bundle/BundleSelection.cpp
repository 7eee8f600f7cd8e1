// Which groups and packages of a bundle are meant for a pen, and in which order they are sent.
#include <algorithm>

#include "Common/StringUtil.h"
#include "installer/bundle/Bundle.h"

namespace {

void Take(BundlePackage& package, std::vector<BundlePackage*>& out, uint64_t* totalSize) {
  if (totalSize) *totalSize += static_cast<uint64_t>(int64_t{package.fileSize});
  out.push_back(&package);
}

}  // namespace

bool CBundle::CompareBndPak(const BundlePackage& a, const BundlePackage& b) {
  return a.transferOrder < b.transferOrder;
}

bool CBundle::CompareBndPakRef(const BundlePackage* a, const BundlePackage* b) {
  return CompareBndPak(*a, *b);
}

bool CBundle::MatchPenType(const BundleGroup& group, int32_t penType) {
  return std::any_of(group.penTypes.begin(), group.penTypes.end(),
                     [penType](int32_t type) { return type == penType || type == 0; });
}

bool CBundle::GetPenGroups(int32_t penType, std::string groupName, std::vector<BundleGroup*>& out) {
  out.clear();
  CStringUtil::ToLower(groupName);
  for (BundleGroup& group : m_groups) {
    if (penType != 0 && !MatchPenType(group, penType)) continue;
    std::string name = group.name;
    CStringUtil::ToLower(name);
    if (groupName.empty() || name == groupName) out.push_back(&group);
  }
  return false;
}

void CBundle::GetPenPackages(int32_t penType, std::string groupName, std::vector<BundlePackage*>& out,
                             uint64_t* totalSize, bool includeFirmware, bool includeOthers) {
  out.clear();
  if (totalSize) *totalSize = 0;
  std::vector<BundleGroup*> groups;
  GetPenGroups(penType, std::move(groupName), groups);
  for (BundleGroup* group : groups) {
    for (BundlePackage& package : group->packages) {
      if (package.type == BndPakFirmware ? includeFirmware : includeOthers) Take(package, out, totalSize);
    }
  }
  std::stable_sort(out.begin(), out.end(), CompareBndPakRef);
}

void CBundle::GetNonPenPackages(std::string groupName, std::vector<BundlePackage*>& out, uint64_t* totalSize) {
  out.clear();
  if (totalSize) *totalSize = 0;
  std::vector<BundleGroup*> groups;
  GetPenGroups(0, std::move(groupName), groups);
  for (BundleGroup* group : groups) {
    for (BundlePackage& package : group->packages) {
      if (package.type == BndPakUnknown) Take(package, out, totalSize);
    }
  }
  std::stable_sort(out.begin(), out.end(), CompareBndPakRef);
}

bool CBundle::IsValidForPen(int32_t penType) {
  const auto holdsSomething = [](const BundlePackage& package) { return package.fileSize > 0; };
  return std::any_of(m_groups.begin(), m_groups.end(), [&](const BundleGroup& group) {
    return MatchPenType(group, penType) && std::any_of(group.packages.begin(), group.packages.end(), holdsSomething);
  });
}
