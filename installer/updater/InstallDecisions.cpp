#include "installer/updater/InstallDecisions.h"

#include "Common/FileUtil.h"
#include "Common/StringUtil.h"

namespace {

const PenletInfo* FindPenlet(const BundlePackage& package, const PenContents& pen) {
  const auto found = pen.penlets.find(package.guid);
  return found == pen.penlets.end() ? nullptr : &found->second;
}

int CompareGroupVersion(const BundlePackage& package, const PenletInfo& penlet) {
  return CStringUtil::CompareVersion(package.group->version, FieldText(penlet.groupVersion));
}

// The package's version against the penlet's; the build number decides between equal versions.
int ComparePackageVersion(const BundlePackage& package, const PenletInfo& penlet) {
  const int versions = CStringUtil::CompareVersion(package.version, FieldText(penlet.version));
  if (versions != 0) return versions;
  return (package.buildNumber > penlet.buildNumber) - (package.buildNumber < penlet.buildNumber);
}

InstallDecision DecideFirmware(const BundlePackage& package, const PenContents& pen) {
  const int versions = CStringUtil::CompareVersion(package.version, pen.fwVersion);
  if (versions > 0) return {InstallReason::kNewerVersion, InstallRecord::kPackage};
  return {versions == 0 ? InstallReason::kSameFirmware : InstallReason::kOlderFirmware, InstallRecord::kNothing};
}

// An empty group name in the package never forces an install, though NeedToUpdate compares even an empty one.
bool BelongsToOtherGroup(const BundlePackage& package, const PenletInfo& penlet) {
  return !package.group->name.empty() && package.group->name != FieldText(penlet.groupName);
}

InstallDecision DecideAgainstPenlet(const BundlePackage& package, const PenletInfo& penlet) {
  if (BelongsToOtherGroup(package, penlet)) return {InstallReason::kOtherGroup, InstallRecord::kPackage};
  const int groups = CompareGroupVersion(package, penlet);
  if (groups < 0) return {InstallReason::kOlderGroup, InstallRecord::kNothing};
  const int versions = ComparePackageVersion(package, penlet);
  if (versions > 0) return {InstallReason::kNewerVersion, InstallRecord::kPackage};
  return {versions == 0 ? InstallReason::kSameVersion : InstallReason::kOlderVersion,
          groups > 0 ? InstallRecord::kGroupOnly : InstallRecord::kNothing};
}

bool BringsSomethingNew(const BundlePackage& package, const PenContents& pen) {
  if (package.type == BndPakFirmware) return CStringUtil::CompareVersion(package.version, pen.fwVersion) > 0;
  if (!LivesOnPen(package)) return false;
  const PenletInfo* penlet = FindPenlet(package, pen);
  if (!penlet || package.group->name != FieldText(penlet->groupName)) return true;
  const int groups = CompareGroupVersion(package, *penlet);
  return groups != 0 ? groups > 0 : ComparePackageVersion(package, *penlet) > 0;
}

}  // namespace

bool LivesOnPen(const BundlePackage& package) {
  return package.type == BndPakPenApp || package.type == BndPakPaperProduct;
}

InstallDecision DecideInstall(const BundlePackage& package, const PenContents& pen) {
  if (package.type == BndPakFirmware) return DecideFirmware(package, pen);
  if (!LivesOnPen(package)) return {InstallReason::kNotCompared, InstallRecord::kNothing};
  const PenletInfo* penlet = FindPenlet(package, pen);
  if (!penlet) return {InstallReason::kNotOnPen, InstallRecord::kPackage};
  return DecideAgainstPenlet(package, *penlet);
}

std::string DescribeSkip(const InstallDecision& decision, const BundlePackage& package, const PenContents& pen) {
  if (decision.Installs()) return {};
  const std::string skipped =
      std::string("Skipped \"") + CFileUtil::GetFileName(package.localPath.c_str()) + "\" version " + package.version;
  const PenletInfo* penlet = FindPenlet(package, pen);
  switch (decision.reason) {
    case InstallReason::kSameFirmware:
      return skipped + ", Same version already installed";
    case InstallReason::kOlderFirmware:
      return skipped + ", newer version " + pen.fwVersion + " already installed";
    case InstallReason::kOlderGroup:
      return skipped + " - group version " + package.group->version + ", newer group version " +
             (penlet ? FieldText(penlet->groupVersion) : "") + " already installed";
    case InstallReason::kSameVersion:
      return skipped + ", same version already installed";
    default:
      return skipped + ", newer version " + (penlet ? FieldText(penlet->version) : "") + " already installed";
  }
}

bool NeedToUpdate(const std::vector<BundlePackage*>& packages, const PenContents& pen) {
  for (const BundlePackage* package : packages) {
    if (BringsSomethingNew(*package, pen)) return true;
  }
  return false;
}
