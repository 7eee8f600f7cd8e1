#include "installer/updater/PackageChecks.h"

#include "Common/Logger_mac.h"
#include "installer/updater/InstallDecisions.h"
#include "installer/updater/Reports.h"

bool CPenUpdater::CachePenInfos(int32_t channel) {
  m_penlets.clear();
  m_fwVersion.clear();
  return RefreshPenOver(channel, m_penHandle) && ReadFirmwareVersion(m_penHandle, &m_fwVersion) &&
         ReadPenlets(m_penHandle, &m_penlets);
}

InsResCode ReadContents(CPenUpdater& updater, int32_t channel, const char* tag) {
  if (updater.CachePenInfos(channel)) return insSuccess;
  g_Logger.LogEvent(tag, "Unable cache pen and penlet information. penHandle=%d", updater.m_penHandle);
  return insPenFailure;
}

InsResCode CheckSignature(CPenUpdater& updater, const char* tag) {
  updater.m_isVerified = updater.m_bundle->Verify(*updater.m_curPackage, *updater.m_certificates) == insSuccess;
  if (updater.m_isVerified) return insSuccess;
  const InsResCode result = AskToSkip(updater, insPackageUnsigned);
  if (result == insSuccess) g_Logger.LogEvent(tag, "Skip DRM checking error. Pak=%s", updater.m_curPakName.c_str());
  return result;
}

bool CPenUpdater::CheckToInstall(BundlePackage& package) {
  const InstallDecision decision = DecideInstall(package, Contents());
  if (decision.record == InstallRecord::kPackage) AddProcessingItem(package);
  if (decision.record == InstallRecord::kGroupOnly) AddProcessingItem(package.guid, package.type, package.group);
  if (decision.Installs()) return true;
  g_Logger.LogEvent("CheckToInstall", "%s", DescribeSkip(decision, package, Contents()).c_str());
  return false;
}

void CPenUpdater::AddProcessingItem(BundlePackage& package) {
  m_processingItems[package.guid] = {package.type, &package, package.group};
}

void CPenUpdater::AddProcessingItem(const std::string& guid, BndPakTypes type, BundleGroup* group) {
  m_processingItems[guid] = {type, nullptr, group};
}
