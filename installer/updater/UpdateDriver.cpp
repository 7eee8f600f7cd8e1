// CPenUpdater::Update: one install, step by step. Each step returns 0 to go on and anything else to end the run with
// it.
#include <algorithm>
#include <span>

#include "Common/Logger_mac.h"
#include "installer/updater/InstallDecisions.h"
#include "installer/updater/ObexChannel.h"
#include "installer/updater/PackageChecks.h"
#include "installer/updater/Reports.h"

namespace {

constexpr const char* kTag = "Update";
constexpr int32_t kPenNameSize = 100;

using Packages = std::span<BundlePackage* const>;

// Firmware that the transfer order puts after another package is handled like an application.
size_t CountLeadingFirmware(Packages packages) {
  const auto other = std::find_if(packages.begin(), packages.end(),
                                  [](const BundlePackage* package) { return package->type != BndPakFirmware; });
  return static_cast<size_t>(other - packages.begin());
}

InsResCode ReadPen(UpdaterPen& pen, UpdateRun& run, int32_t handle) {
  uint64_t penId = 0;
  char name[kPenNameSize] = {};
  if (pcGetPenId(handle, &penId, nullptr, name, kPenNameSize) != 0) {
    g_Logger.LogEvent(kTag, "Unable get penId, penHandle=%d", handle);
    return insPenFailure;
  }
  pen.m_penHandle = handle;
  pen.m_penId = penId;
  pen.m_penName = FieldText(name);
  if (pcGetPenType(handle, &pen.m_penType, 0, 0) != 0) {
    g_Logger.LogEvent(kTag, "Unable get pentype, penHandle=%d", handle);
    return insPenFailure;
  }
  if (pcGetPenState(handle, &run.m_penState, 0, 0) != 0) {
    g_Logger.LogEvent(kTag, "Unable get state, penHandle=%d", handle);
    return insPenFailure;
  }
  run.m_abort = false;  // a request that came before this point was meant for an earlier run
  return insSuccess;
}

InsResCode SelectPackages(const UpdaterPen& pen, UpdateRun& run) {
  const InsResCode result = run.m_bundle->VerifyUpdateXML(*run.m_certificates);
  if (result != insSuccess) {
    g_Logger.LogEvent(kTag, "Verify UpdateXML failed.");
    return result;
  }
  run.m_doneBytes = 0;
  run.m_bundle->GetPenPackages(pen.m_penType, run.m_group, run.m_packages, &run.m_totalBytes, run.Has(insFlagFirmware),
                               run.Has(insFlagApps));
  if (!run.m_packages.empty()) return insSuccess;
  g_Logger.LogEvent(kTag, "No Resource for pen type %d, group \"%s\"", pen.m_penType, run.m_group.c_str());
  return insNoResource;
}

InsResCode CompareWithPen(CPenUpdater& updater) {
  if (!updater.Compares()) return insSuccess;
  const InsResCode result = ReadContents(updater, 0, kTag);
  if (result != insSuccess) return result;
  return NeedToUpdate(updater.m_packages, updater.Contents()) ? insSuccess : insNothingToDo;
}

// What a failed transfer means for the run: 0 when the host skips the package. An abort wins over the failure.
InsResCode SettleFailure(CPenUpdater& updater, InsResCode code) {
  if (updater.m_abort) return insAborted;
  const InsResCode result = AskToSkip(updater, code);
  if (result == insSuccess) {
    g_Logger.LogEvent(kTag, "Skip Error, code=%d. Pak=%s", code, updater.m_curPakName.c_str());
  }
  return result;
}

InsResCode InstallFirmwarePackage(CPenUpdater& updater, BundlePackage& package, int32_t* penHandle) {
  const InsResCode checked = CheckSignature(updater, kTag);
  if (checked != insSuccess) return checked;
  if (updater.Compares()) {
    if (!updater.CheckToInstall(package)) return insSuccess;
  } else {
    updater.AddProcessingItem(package);
  }
  const InsResCode installed = updater.InstallFW(package);
  if (installed == insSuccess) return insSuccess;
  const InsResCode result = SettleFailure(updater, installed);
  // The pen may have come back under another handle in the middle of the failed transfer.
  if (result != insSuccess) *penHandle = updater.RefreshPenHandle();
  return result;
}

InsResCode InstallFirmwarePackages(CPenUpdater& updater, Packages packages, int32_t* penHandle) {
  for (BundlePackage* package : packages) {
    TakeInHand(updater, *package);
    if (updater.Has(insFlagFirmware)) {
      const InsResCode result = InstallFirmwarePackage(updater, *package, penHandle);
      if (result != insSuccess) return result;
    }
    *penHandle = updater.m_penHandle;
    const InsResCode result = FinishPackage(updater);
    if (result != insSuccess) return result;
  }
  return insSuccess;
}

// A pen that began in download mode can be read now, after its firmware went in.
InsResCode RereadPen(CPenUpdater& updater) {
  if (updater.Has(insFlagForce) || updater.m_penState != pcPenStateFirmwareDownload) return insSuccess;
  return ReadContents(updater, 0, kTag);
}

InsResCode SettleUnknownPackage(CPenUpdater& updater) {
  const InsResCode result = AskToSkip(updater, insUnknownPackage);
  if (result == insSuccess) {
    g_Logger.LogEvent(kTag, "Skip Error, code=%d. Pak=%s", insUnknownPackage, updater.m_curPakName.c_str());
  } else {
    // The code in the message is the run's result so far, not the package's.
    g_Logger.LogEvent(kTag, "Unrecognized item error, code=%d. Pak=%s", insSuccess, updater.m_curPakName.c_str());
  }
  return result;
}

InsResCode InstallApplication(CPenUpdater& updater, BundlePackage& package, int32_t channel) {
  const InsResCode checked = CheckSignature(updater, kTag);
  if (checked != insSuccess) return checked;
  if (package.type == BndPakUnknown) return SettleUnknownPackage(updater);
  if (updater.Has(insFlagForce)) {
    updater.AddProcessingItem(package);
  } else if (!updater.CheckToInstall(package)) {
    return insSuccess;
  }
  const InsResCode installed = updater.InstallApp(package, channel);
  return installed == insSuccess ? insSuccess : SettleFailure(updater, installed);
}

InsResCode InstallApplications(CPenUpdater& updater, Packages packages, int32_t channel) {
  for (BundlePackage* package : packages) {
    TakeInHand(updater, *package);
    if (updater.Has(insFlagApps)) {
      const InsResCode result = InstallApplication(updater, *package, channel);
      if (result != insSuccess) return result;
    }
    const InsResCode result = FinishPackage(updater);
    if (result != insSuccess) return result;
  }
  return insSuccess;
}

InsResCode RaiseGroupVersions(CPenUpdater& updater, int32_t channel) {
  if (!updater.Has(insFlagApps)) return insSuccess;
  std::vector<BundleGroup*> groups;
  updater.m_bundle->GetPenGroups(updater.m_penType, updater.m_group, groups);
  return updater.UpdateGroupVersion(groups, updater.m_packages, channel);
}

// What follows the firmware, on one channel that is open to the end of the run, on every path.
InsResCode UpdateOverChannel(CPenUpdater& updater, Packages packages) {
  ObexChannel channel;
  if (channel.Start(updater.m_penHandle) != 0) return insPenFailure;
  InsResCode result = InstallApplications(updater, packages, channel.channel());
  if (result == insSuccess) result = RaiseGroupVersions(updater, channel.channel());
  return result == insSuccess ? updater.VerifyPen(channel.channel()) : result;
}

}  // namespace

InsResCode CPenUpdater::Update(int32_t* penHandle, CBundle* bundle, const PenUpdateCfg* cfg,
                               PenUpdateProgressCallback callback, void* userData) {
  if (!penHandle || *penHandle == 0) return NotifyNonPenPackages(bundle, cfg, callback, userData);
  BeginRun(*this, bundle, callback, userData);
  if (!cfg) {
    g_Logger.LogEvent(kTag, "Config is NULL");
    return insNoConfig;
  }
  m_flags = cfg->flags;
  m_group = cfg->group ? cfg->group : "";
  InsResCode result = ReadPen(*this, *this, *penHandle);
  if (result == insSuccess) result = SelectPackages(*this, *this);
  if (result == insSuccess) result = CompareWithPen(*this);
  const Packages packages = m_packages;
  const size_t firmware = CountLeadingFirmware(packages);
  if (result == insSuccess) result = InstallFirmwarePackages(*this, packages.first(firmware), penHandle);
  if (result == insSuccess) result = RereadPen(*this);
  return result == insSuccess ? UpdateOverChannel(*this, packages.subspan(firmware)) : result;
}
