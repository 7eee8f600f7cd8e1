// The transfers of one package: an application over the open channel, firmware through the pen's download mode.
#include "Common/Clock.h"
#include "Common/FileUtil.h"
#include "Common/Logger_mac.h"
#include "installer/updater/PenUpdater.h"
#include "installer/updater/ProgressGate.h"

namespace {

int32_t Now() {
  return static_cast<int32_t>(Clock::Current().Seconds());
}

}  // namespace

InsResCode CPenUpdater::InstallApp(BundlePackage& package, int32_t channel) {
  m_startTime = Now();
  const char* const subject = package.drmInfo ? package.drmInfo->subjectText.c_str() : "";
  const char* const signature = package.drmInfo ? package.drmInfo->signature.c_str() : "";
  const OpenGate gate(this);
  const int32_t pcRet = pcInstallPenlet(m_penHandle, channel, package.localPath.c_str(), subject, signature, 0,
                                        OnProgressCallback, gate.context());
  if (pcRet == 0) return WriteAttributes(package, channel);
  g_Logger.LogEvent("InstallApp", "Install app failed, app=%s, penHandle=%d, pcRet=%d",
                    CFileUtil::GetFileName(package.localPath.c_str()), m_penHandle, pcRet);
  return insAppFailed;
}

// The group's attributes first, then the package's own.
InsResCode CPenUpdater::WriteAttributes(BundlePackage& package, int32_t channel) {
  std::vector<PenletAttribute> attributes(package.group->attribs, package.group->attribs + package.group->attribCount);
  attributes.insert(attributes.end(), package.attribs, package.attribs + package.attribCount);
  if (attributes.empty()) return insSuccess;
  const int32_t pcRet = pcSetPenletAttrib(m_penHandle, channel, package.guid.c_str(), attributes.data(),
                                          static_cast<int32_t>(attributes.size()));
  if (pcRet == 0) return insSuccess;
  g_Logger.LogEvent("InstallApp", "Set app attribute failed, guid=%s, penHandle=%d, pcRet=%d", package.guid.c_str(),
                    m_penHandle, pcRet);
  return insAppFailed;
}

InsResCode CPenUpdater::InstallFW(BundlePackage& package) {
  const InsResCode entered = EnterDownloadMode();
  if (entered != insSuccess) return entered;
  const InsResCode attached = WaitPenAttach();
  if (attached != insSuccess) return attached;
  if (m_abort) return insAborted;
  m_startTime = Now();
  const int32_t pcRet = DownloadFirmware(package);
  if (m_abort) return insAborted;
  if (pcRet == 0) return WaitPen();
  g_Logger.LogEvent("InstallFW", "Install firmware failed, penHandle=%d, pcRet=%d", m_penHandle, pcRet);
  return insFirmwareFailed;
}

// Has the pen leave the bus, unless it is in download mode already.
InsResCode CPenUpdater::EnterDownloadMode() {
  int32_t state = 0;
  if (pcGetPenState(m_penHandle, &state, 0, 0) != 0) {
    g_Logger.LogEvent("InstallFW", "Unable get penState, penHandle=%d", m_penHandle);
    return insFirmwareFailed;
  }
  if (state == pcPenStateFirmwareDownload) return insSuccess;
  if (pcDfuDetach(m_penHandle, 0, 0) != 0) {
    g_Logger.LogEvent("InstallFW", "Unable to DFUDetach pen, penHandle=%d", m_penHandle);
    return insFirmwareFailed;
  }
  return WaitPenDetach();
}

int32_t CPenUpdater::DownloadFirmware(const BundlePackage& package) {
  const OpenGate gate(this);
  return pcDfuDownload(m_penHandle, package.localPath.c_str(), OnProgressCallback, gate.context(), 0);
}

int32_t CPenUpdater::OnProgressCallback(int32_t penHandle, uint64_t totalBytes, uint64_t doneBytes, void* context) {
  if (!context) return 0;
  return static_cast<ProgressGate*>(context)->Pass([=](CPenUpdater& updater) {
    if (updater.m_penHandle != penHandle) return 0;
    return updater.m_abort ? 1 : updater.NotifyProgress(doneBytes, totalBytes);
  });
}
