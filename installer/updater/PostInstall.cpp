// After the transfers, on the still open channel: group versions, and the check of what the pen holds.
#include <set>
#include <string_view>

#include "Common/FileUtil.h"
#include "Common/Logger_mac.h"
#include "Common/StringUtil.h"
#include "installer/updater/InstallDecisions.h"
#include "installer/updater/PackageChecks.h"
#include "installer/updater/PenLibrary.h"

namespace {

// The two identifiers of a penlet are those of its paper.
BndPakTypes TypeOf(const PenletInfo& penlet) {
  return penlet.firstId != 0 || penlet.secondId != 0 ? BndPakPaperProduct : BndPakPenApp;
}

bool Raises(const BundleGroup& group, const PenletInfo& penlet) {
  return group.name == FieldText(penlet.groupName) &&
         CStringUtil::CompareVersion(group.version, FieldText(penlet.groupVersion)) > 0;
}

// One difference between the pen and the bundle, by plain comparison: "1.0" is not "1.0.0".
struct Difference {
  const char* what;  // as the message names it
  std::string actual;
  const std::string& expected;
};

InsResCode Judge(const std::string& name, std::initializer_list<Difference> comparisons) {
  for (const Difference& difference : comparisons) {
    if (difference.actual == difference.expected) continue;
    g_Logger.LogEvent("VerifyPen", "Apps (%s) %s mismatch. Actual=%s, Expect=%s", name.c_str(), difference.what,
                      difference.actual.c_str(), difference.expected.c_str());
    return insVerifyPenFailed;
  }
  return insSuccess;
}

InsResCode ReportMissing(const std::string& name) {
  g_Logger.LogEvent("VerifyPen", "Apps (%s) Not Found", name.c_str());
  return insVerifyPenFailed;
}

std::string FileNameOf(const BundlePackage& package) {
  return CFileUtil::GetFileName(package.localPath.c_str());
}

InsResCode RaiseGroupVersion(int32_t penHandle, const PenletInfo& penlet, const BundleGroup& group, int32_t channel) {
  const std::string guid = FieldText(penlet.guid);
  const int32_t pcRet =
      pcSetPenletAttrib(penHandle, channel, guid.c_str(), group.attribs, static_cast<int32_t>(group.attribCount));
  if (pcRet == 0) return insSuccess;
  g_Logger.LogEvent("UpdateGroupVersion",
                    "Update group attribute for app failed, guid=%s, name=%s, penHandle=%d, pcRet=%d", guid.c_str(),
                    FieldText(penlet.displayName).c_str(), penHandle, pcRet);
  return insPenFailure;
}

InsResCode UpdatePenletGroup(CPenUpdater& updater, const PenletInfo& penlet, bool isCarried,
                             const std::vector<BundleGroup*>& groups, int32_t channel) {
  const std::string guid = FieldText(penlet.guid);
  const auto found = updater.m_processingItems.find(guid);
  if (found != updater.m_processingItems.end()) {
    const UpdaterProcessingItem& item = found->second;
    // One that was installed has its attributes from its transfer.
    if (item.package || !item.group) return insSuccess;
    return RaiseGroupVersion(updater.m_penHandle, penlet, *item.group, channel);
  }
  if (isCarried) return insSuccess;
  for (BundleGroup* group : groups) {
    if (!Raises(*group, penlet)) continue;
    updater.AddProcessingItem(guid, TypeOf(penlet), group);
    const InsResCode result = RaiseGroupVersion(updater.m_penHandle, penlet, *group, channel);
    if (result != insSuccess) return result;
  }
  return insSuccess;
}

// A missing penlet goes by the name of the last package that the run handled.
InsResCode VerifyGroupOnly(const PenContents& pen, const std::string& guid, const BundleGroup& group,
                           const std::string& lastPakName) {
  const auto found = pen.penlets.find(guid);
  if (found == pen.penlets.end()) return ReportMissing(lastPakName);
  const PenletInfo& penlet = found->second;
  return Judge(FieldText(penlet.name), {{"Group Name", FieldText(penlet.groupName), group.name},
                                        {"Group Version", FieldText(penlet.groupVersion), group.version}});
}

InsResCode VerifyFirmware(const PenContents& pen, const BundlePackage& package) {
  if (pen.fwVersion == package.version) return insSuccess;
  g_Logger.LogEvent("VerifyPen", "Firmware (%s) Version mismatch. Actual=%s, Expect=%s", FileNameOf(package).c_str(),
                    pen.fwVersion.c_str(), package.version.c_str());
  return insVerifyPenFailed;
}

InsResCode VerifyApplication(const PenContents& pen, const BundlePackage& package) {
  const auto found = pen.penlets.find(package.guid);
  if (found == pen.penlets.end()) return ReportMissing(FileNameOf(package));
  const PenletInfo& penlet = found->second;
  return Judge(FileNameOf(package), {{"Version", FieldText(penlet.version), package.version},
                                     {"Group Name", FieldText(penlet.groupName), package.group->name},
                                     {"Group Version", FieldText(penlet.groupVersion), package.group->version}});
}

// What the run did to one penlet, against what the pen holds now.
InsResCode VerifyItem(const PenContents& pen, const UpdateRun& run, const std::string& guid,
                      const UpdaterProcessingItem& item) {
  if (!item.package) return item.group ? VerifyGroupOnly(pen, guid, *item.group, run.m_curPakName) : insSuccess;
  if (run.Has(insFlagFirmware) && item.package->type == BndPakFirmware) return VerifyFirmware(pen, *item.package);
  if (run.Has(insFlagApps) && LivesOnPen(*item.package)) return VerifyApplication(pen, *item.package);
  return insSuccess;
}

}  // namespace

InsResCode CPenUpdater::UpdateGroupVersion(const std::vector<BundleGroup*>& groups,
                                           const std::vector<BundlePackage*>& packages, int32_t channel) {
  int32_t count = 0;
  int32_t pcRet = pcGetPenletInfo(m_penHandle, channel, nullptr, 0, nullptr, nullptr);
  if (pcRet != 0) {
    g_Logger.LogEvent("UpdateGroupVersion", "Unable get penlet list. pcRet=%d", pcRet);
    return insPenFailure;
  }
  pcRet = CountPenlets(m_penHandle, "UpdateGroupVersion", &count);
  if (pcRet != 0) {
    g_Logger.LogEvent("UpdateGroupVersion", "Unable count penlet list. pcRet=%d", pcRet);
    return insPenFailure;
  }
  std::set<std::string_view> carried;
  for (const BundlePackage* package : packages) carried.insert(package->guid);
  PenletInfo penlet;
  for (int32_t i = 0; i < count; ++i) {
    pcRet = ReadPenletItem(m_penHandle, i, &penlet);
    if (pcRet != 0) {
      g_Logger.LogEvent("UpdateGroupVersion", "Unable get penlet item. pcRet=%d", pcRet);
      return insPenFailure;
    }
    if (penlet.present == 0) continue;
    const bool isCarried = carried.contains(FieldText(penlet.guid));
    const InsResCode result = UpdatePenletGroup(*this, penlet, isCarried, groups, channel);
    if (result != insSuccess) return result;
  }
  return insSuccess;
}

InsResCode CPenUpdater::VerifyPen(int32_t channel) {
  const InsResCode read = ReadContents(*this, channel, "VerifyPen");
  if (read != insSuccess) return read;
  for (const auto& [guid, item] : m_processingItems) {
    const InsResCode result = VerifyItem(Contents(), *this, guid, item);
    if (result != insSuccess) return result;
  }
  return insSuccess;
}
