// The transfers of one package: an application over the open channel, firmware through the pen's download mode.
#include "Common/Clock.h"
#include "Common/FileUtil.h"
#include "Common/Logger_mac.h"
#include "installer/updater/PenUpdater.h"

namespace {

int32_t Now() {
  return static_cast<int32_t>(Clock::Current().Seconds());
}

int32_t SendApplication(int32_t penHandle, int32_t channel, const BundlePackage& package, const RunGate& runGate) {
  const char* const subject = package.drmInfo ? package.drmInfo->subjectText.c_str() : "";
  const char* const signature = package.drmInfo ? package.drmInfo->signature.c_str() : "";
  const OpenGate gate(runGate, penHandle);
  return pcInstallPenlet(penHandle, channel, package.localPath.c_str(), subject, signature, 0,
                         CPenUpdater::OnProgressCallback, gate.context());
}

// The group's attributes first, then the package's own.
InsResCode WriteAttributes(int32_t penHandle, int32_t channel, const BundlePackage& package) {
  std::vector<PenletAttribute> attributes(package.group->attribs, package.group->attribs + package.group->attribCount);
  attributes.insert(attributes.end(), package.attribs, package.attribs + package.attribCount);
  if (attributes.empty()) return insSuccess;
  const int32_t pcRet = pcSetPenletAttrib(penHandle, channel, package.guid.c_str(), attributes.data(),
                                          static_cast<int32_t>(attributes.size()));
  if (pcRet == 0) return insSuccess;
  g_Logger.LogEvent("InstallApp", "Set app attribute failed, guid=%s, penHandle=%d, pcRet=%d", package.guid.c_str(),
                    penHandle, pcRet);
  return insAppFailed;
}

// Has the pen leave the bus, unless it is in download mode already.
InsResCode EnterDownloadMode(CPenUpdater& updater) {
  int32_t state = 0;
  if (pcGetPenState(updater.m_penHandle, &state, 0, 0) != 0) {
    g_Logger.LogEvent("InstallFW", "Unable get penState, penHandle=%d", updater.m_penHandle);
    return insFirmwareFailed;
  }
  if (state == pcPenStateFirmwareDownload) return insSuccess;
  if (pcDfuDetach(updater.m_penHandle, 0, 0) != 0) {
    g_Logger.LogEvent("InstallFW", "Unable to DFUDetach pen, penHandle=%d", updater.m_penHandle);
    return insFirmwareFailed;
  }
  return updater.WaitPenDetach();
}

int32_t DownloadFirmware(int32_t penHandle, const BundlePackage& package, const RunGate& runGate) {
  const OpenGate gate(runGate, penHandle);
  return pcDfuDownload(penHandle, package.localPath.c_str(), CPenUpdater::OnProgressCallback, gate.context(), 0);
}

// Holds the package's file for one pen call, as it was when it was checked: where it passed its check it passes it once
// more, whatever happened to the folder while the run waited for the pen.
InsResCode HoldFile(const UpdateRun& run, BundlePackage& package, CSharedFolder::Hold& hold) {
  return run.m_bundle->HoldForTransfer(package, run.m_isVerified ? run.m_certificates.get() : nullptr, hold);
}

}  // namespace

InsResCode CPenUpdater::InstallApp(BundlePackage& package, int32_t channel) {
  CSharedFolder::Hold hold;
  const InsResCode held = HoldFile(*this, package, hold);
  if (held != insSuccess) return held;
  m_startTime = Now();
  const int32_t pcRet = SendApplication(m_penHandle, channel, package, m_gate);
  hold = {};
  if (pcRet == 0) return WriteAttributes(m_penHandle, channel, package);
  g_Logger.LogEvent("InstallApp", "Install app failed, app=%s, penHandle=%d, pcRet=%d",
                    CFileUtil::GetFileName(package.localPath.c_str()), m_penHandle, pcRet);
  return insAppFailed;
}

InsResCode CPenUpdater::InstallFW(BundlePackage& package) {
  const InsResCode entered = EnterDownloadMode(*this);
  if (entered != insSuccess) return entered;
  const InsResCode attached = WaitPenAttach();
  if (attached != insSuccess) return attached;
  if (m_abort) return insAborted;
  CSharedFolder::Hold hold;
  const InsResCode held = HoldFile(*this, package, hold);
  if (held != insSuccess) return held;
  m_startTime = Now();
  const int32_t pcRet = DownloadFirmware(m_penHandle, package, m_gate);
  hold = {};
  if (m_abort) return insAborted;
  if (pcRet == 0) return WaitPen();
  g_Logger.LogEvent("InstallFW", "Install firmware failed, penHandle=%d, pcRet=%d", m_penHandle, pcRet);
  return insFirmwareFailed;
}

int32_t CPenUpdater::OnProgressCallback(int32_t penHandle, uint64_t totalBytes, uint64_t doneBytes, void* context) {
  return context ? static_cast<ProgressGate*>(context)->Tick(penHandle, totalBytes, doneBytes) : 0;
}
