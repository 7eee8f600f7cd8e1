// CPenUpdater::Update: one install, step by step.
#include <array>

#include "Common/FileUtil.h"
#include "Common/Logger_mac.h"
#include "installer/updater/ObexChannel.h"
#include "installer/updater/PenUpdater.h"

// What one install knows. The channel is open from OpenChannel to the end of the run, on every path.
struct UpdateRun {
  int32_t* penHandle;  // the caller's
  CBundle& bundle;
  const PenUpdateCfg& cfg;
  std::string group;
  int32_t penState = 0;
  std::vector<BundlePackage*> packages{};
  size_t next = 0;  // the first package of the application phase
  ObexChannel channel{};

  bool Has(InsFlags flag) const { return (cfg.flags & static_cast<uint32_t>(flag)) != 0; }
  // A pen in download mode tells nothing about what it holds.
  bool Compares() const { return !Has(insFlagForce) && penState == pcPenStateNormal; }
};

namespace {

constexpr int32_t kPenNameSize = 100;

uint64_t SizeOf(const BundlePackage& package) {
  return static_cast<uint64_t>(int64_t{package.fileSize});
}

}  // namespace

InsResCode CPenUpdater::Update(int32_t* penHandle, CBundle* bundle, const PenUpdateCfg* cfg,
                               PenUpdateProgressCallback callback, void* userData) {
  if (!penHandle || *penHandle == 0) return NotifyNonPenPackages(bundle, cfg, callback, userData);
  Begin(bundle, callback, userData);
  if (!cfg) {
    g_Logger.LogEvent("Update", "Config is NULL");
    return insNoConfig;
  }
  UpdateRun run{penHandle, *bundle, *cfg, cfg->group ? cfg->group : ""};
  constexpr std::array kSteps = {&CPenUpdater::ReadPen,
                                 &CPenUpdater::SelectPackages,
                                 &CPenUpdater::CompareWithPen,
                                 &CPenUpdater::InstallFirmwarePackages,
                                 &CPenUpdater::RereadPen,
                                 &CPenUpdater::OpenChannel,
                                 &CPenUpdater::InstallApplications,
                                 &CPenUpdater::FinishUpdate};
  for (const auto step : kSteps) {
    const InsResCode result = (this->*step)(run);
    if (result != insSuccess) return result;
  }
  return insSuccess;
}

InsResCode CPenUpdater::ReadPen(UpdateRun& run) {
  const int32_t handle = *run.penHandle;
  uint64_t penId = 0;
  char name[kPenNameSize] = {};
  if (pcGetPenId(handle, &penId, nullptr, name, kPenNameSize) != 0) {
    g_Logger.LogEvent("Update", "Unable get penId, penHandle=%d", handle);
    return insPenFailure;
  }
  m_penHandle = handle;
  m_penId = penId;
  m_penName = FieldText(name);
  if (pcGetPenType(handle, &m_penType, 0, 0) != 0) {
    g_Logger.LogEvent("Update", "Unable get pentype, penHandle=%d", handle);
    return insPenFailure;
  }
  if (pcGetPenState(handle, &run.penState, 0, 0) != 0) {
    g_Logger.LogEvent("Update", "Unable get state, penHandle=%d", handle);
    return insPenFailure;
  }
  m_abort = false;  // a request that came before this point was meant for an earlier run
  return insSuccess;
}

InsResCode CPenUpdater::SelectPackages(UpdateRun& run) {
  const InsResCode result = run.bundle.VerifyUpdateXML();
  if (result != insSuccess) {
    g_Logger.LogEvent("Update", "Verify UpdateXML failed.");
    return result;
  }
  m_doneBytes = 0;
  run.bundle.GetPenPackages(m_penType, run.group, run.packages, &m_totalBytes, run.Has(insFlagFirmware),
                            run.Has(insFlagApps));
  if (!run.packages.empty()) return insSuccess;
  g_Logger.LogEvent("Update", "No Resource for pen type %d, group \"%s\"", m_penType, run.group.c_str());
  return insNoResource;
}

InsResCode CPenUpdater::CompareWithPen(UpdateRun& run) {
  if (!run.Compares()) return insSuccess;
  const InsResCode result = ReadContents(0, "Update");
  if (result != insSuccess) return result;
  return NeedToUpdate(run.packages, Contents()) ? insSuccess : insNothingToDo;
}

// The leading run of firmware packages only: firmware that the transfer order puts after another package is handled
// like an application.
InsResCode CPenUpdater::InstallFirmwarePackages(UpdateRun& run) {
  for (; run.next < run.packages.size() && run.packages[run.next]->type == BndPakFirmware; ++run.next) {
    BundlePackage& package = *run.packages[run.next];
    SetCurrentPackage(package);
    if (run.Has(insFlagFirmware)) {
      const InsResCode result = InstallFirmwarePackage(run, package);
      if (result != insSuccess) return result;
    }
    *run.penHandle = m_penHandle;
    const InsResCode result = FinishPackage(package);
    if (result != insSuccess) return result;
  }
  return insSuccess;
}

InsResCode CPenUpdater::InstallFirmwarePackage(UpdateRun& run, BundlePackage& package) {
  const InsResCode checked = CheckSignature(package);
  if (checked != insSuccess) return checked;
  if (run.Compares()) {
    if (!CheckToInstall(package)) return insSuccess;
  } else {
    AddProcessingItem(package);
  }
  const InsResCode installed = InstallFW(package);
  if (installed == insSuccess) return insSuccess;
  const InsResCode result = SettleFailure(installed);
  // The pen may have come back under another handle in the middle of the failed transfer.
  if (result != insSuccess) *run.penHandle = RefreshPenHandle();
  return result;
}

// A pen that began in download mode can be read now, after its firmware went in.
InsResCode CPenUpdater::RereadPen(UpdateRun& run) {
  if (run.Has(insFlagForce) || run.penState != pcPenStateFirmwareDownload) return insSuccess;
  return ReadContents(0, "Update");
}

InsResCode CPenUpdater::OpenChannel(UpdateRun& run) {
  return run.channel.Start(m_penHandle) == 0 ? insSuccess : insPenFailure;
}

InsResCode CPenUpdater::InstallApplications(UpdateRun& run) {
  for (; run.next < run.packages.size(); ++run.next) {
    BundlePackage& package = *run.packages[run.next];
    SetCurrentPackage(package);
    if (run.Has(insFlagApps)) {
      const InsResCode result = InstallApplication(run, package);
      if (result != insSuccess) return result;
    }
    const InsResCode result = FinishPackage(package);
    if (result != insSuccess) return result;
  }
  return insSuccess;
}

InsResCode CPenUpdater::InstallApplication(UpdateRun& run, BundlePackage& package) {
  const InsResCode checked = CheckSignature(package);
  if (checked != insSuccess) return checked;
  if (package.type == BndPakUnknown) {
    const InsResCode result = AskToSkip(insUnknownPackage);
    if (result == insSuccess) {
      g_Logger.LogEvent("Update", "Skip Error, code=%d. Pak=%s", insUnknownPackage, m_curPakName.c_str());
    } else {
      // The code in the message is the run's result so far, not the package's.
      g_Logger.LogEvent("Update", "Unrecognized item error, code=%d. Pak=%s", insSuccess, m_curPakName.c_str());
    }
    return result;
  }
  if (run.Has(insFlagForce)) {
    AddProcessingItem(package);
  } else if (!CheckToInstall(package)) {
    return insSuccess;
  }
  const InsResCode installed = InstallApp(package, run.channel.channel());
  return installed == insSuccess ? insSuccess : SettleFailure(installed);
}

InsResCode CPenUpdater::FinishUpdate(UpdateRun& run) {
  if (run.Has(insFlagApps)) {
    std::vector<BundleGroup*> groups;
    run.bundle.GetPenGroups(m_penType, run.group, groups);
    const InsResCode result = UpdateGroupVersion(groups, run.packages, run.channel.channel());
    if (result != insSuccess) return result;
  }
  return VerifyPen(run.cfg, run.channel.channel());
}

// 0 when the package may be installed: its signature is good, or the host lets it pass. "Skip" skips the check, not
// the package.
InsResCode CPenUpdater::CheckSignature(BundlePackage& package) {
  if (m_bundle->Verify(package) == insSuccess) return insSuccess;
  const InsResCode result = AskToSkip(insPackageUnsigned);
  if (result == insSuccess) g_Logger.LogEvent("Update", "Skip DRM checking error. Pak=%s", m_curPakName.c_str());
  return result;
}

// What a failed transfer means for the run: 0 when the host skips the package. An abort wins over the failure.
InsResCode CPenUpdater::SettleFailure(InsResCode code) {
  if (m_abort) return insAborted;
  const InsResCode result = AskToSkip(code);
  if (result == insSuccess) g_Logger.LogEvent("Update", "Skip Error, code=%d. Pak=%s", code, m_curPakName.c_str());
  return result;
}

// Reports a package that was handled, installed or not.
InsResCode CPenUpdater::FinishPackage(const BundlePackage& package) {
  NotifyProgress(SizeOf(package), SizeOf(package));
  if (m_abort) return insAborted;
  m_doneBytes += SizeOf(package);
  return insSuccess;
}

// Without a pen: the packages that stay on the desktop are reported, so that the host can act on them.
InsResCode CPenUpdater::NotifyNonPenPackages(CBundle* bundle, const PenUpdateCfg* cfg,
                                             PenUpdateProgressCallback callback, void* userData) {
  constexpr const char* kTag = "NotifyNonPenPackages";
  Begin(bundle, callback, userData);
  if (!cfg) {
    g_Logger.LogEvent(kTag, "Config is NULL");
    return insNoConfig;
  }
  g_Logger.LogEvent(kTag, "Perform notify non pen packages.");
  const std::string group = cfg->group ? cfg->group : "";
  m_abort = false;
  const InsResCode checked = bundle->VerifyUpdateXML();
  if (checked != insSuccess) {
    g_Logger.LogEvent(kTag, "Verify UpdateXML failed.");
    return checked;
  }
  m_doneBytes = 0;
  std::vector<BundlePackage*> packages;
  bundle->GetNonPenPackages(group, packages, &m_totalBytes);
  if (packages.empty()) {
    g_Logger.LogEvent(kTag, "Not found non pen packages, group \"%s\"", group.c_str());
    return insNoResource;
  }
  for (BundlePackage* package : packages) {
    const InsResCode result = NotifyNonPenPackage(*package);
    if (result != insSuccess) return result;
  }
  return insSuccess;
}

InsResCode CPenUpdater::NotifyNonPenPackage(BundlePackage& package) {
  constexpr const char* kTag = "NotifyNonPenPackages";
  SetCurrentPackage(package);
  if (m_bundle->Verify(package) != insSuccess) {
    const InsResCode result = AskToSkip(insPackageUnsigned);
    if (result != insSuccess) return result;
    g_Logger.LogEvent(kTag, "Skip DRM checking error. Pak=%s", m_curPakName.c_str());
  }
  if (package.type == BndPakUnknown) {
    const InsResCode result = AskToSkip(insUnknownPackage);
    if (result != insSuccess) {
      g_Logger.LogEvent(kTag, "Unrecognized item error, code=%d. Pak=%s", insSuccess, m_curPakName.c_str());
      return result;
    }
  }
  return FinishPackage(package);
}
