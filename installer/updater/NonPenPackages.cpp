// Without a pen: the packages that stay on the desktop are reported, so that the host can act on them.
#include "Common/Logger_mac.h"
#include "installer/updater/PackageChecks.h"
#include "installer/updater/Reports.h"

namespace {

constexpr const char* kTag = "NotifyNonPenPackages";

InsResCode ReportPackage(CPenUpdater& updater, BundlePackage& package) {
  TakeInHand(updater, package);
  const InsResCode checked = CheckSignature(updater, kTag);
  if (checked != insSuccess) return checked;
  if (package.type == BndPakUnknown) {
    const InsResCode result = AskToSkip(updater, insUnknownPackage);
    if (result != insSuccess) {
      g_Logger.LogEvent(kTag, "Unrecognized item error, code=%d. Pak=%s", insSuccess, updater.m_curPakName.c_str());
      return result;
    }
  }
  return FinishPackage(updater);
}

}  // namespace

InsResCode CPenUpdater::NotifyNonPenPackages(CBundle* bundle, const PenUpdateCfg* cfg,
                                             PenUpdateProgressCallback callback, void* userData) {
  BeginRun(*this, bundle, callback, userData);
  if (!cfg) {
    g_Logger.LogEvent(kTag, "Config is NULL");
    return insNoConfig;
  }
  g_Logger.LogEvent(kTag, "Perform notify non pen packages.");
  m_group = cfg->group ? cfg->group : "";
  m_abort = false;
  const InsResCode checked = bundle->VerifyUpdateXML(*m_certificates);
  if (checked != insSuccess) {
    g_Logger.LogEvent(kTag, "Verify UpdateXML failed.");
    return checked;
  }
  m_doneBytes = 0;
  bundle->GetNonPenPackages(m_group, m_packages, &m_totalBytes);
  if (m_packages.empty()) {
    g_Logger.LogEvent(kTag, "Not found non pen packages, group \"%s\"", m_group.c_str());
    return insNoResource;
  }
  for (BundlePackage* package : m_packages) {
    const InsResCode result = ReportPackage(*this, *package);
    if (result != insSuccess) return result;
  }
  return insSuccess;
}
