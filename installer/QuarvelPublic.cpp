// The exported functions: each a few lines around the installer front, with its line or lines in the log.
#include "installer/QuarvelPublic.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "Common/Logger_mac.h"
#include "installer/Quarveler.h"
#include "installer/VolatileMark.h"

// Constructed after the logger (which has a priority of its own) and so destroyed before it.
static CQuarveler g_Quarveler;

namespace {

constexpr char kVersionText[] = "1.2.13.0";
constexpr int kVersionNumbers[] = {1, 2, 13, 0};

constexpr unsigned long kDefaultLogSize = 1048576;
constexpr unsigned long kShrinkSize = 256000;   // how far below its limit a trimmed log ends up
constexpr unsigned long kFlushInterval = 1000;  // milliseconds
constexpr unsigned long kMessageLimit = 1024;   // bytes

// Runs one call. Nothing is thrown to the host: what escapes (memory that ran out) gives `failure`.
template <typename Call>
InsResCode Guarded(InsResCode failure, Call call) {
  try {
    return call();
  } catch (...) {
    return failure;
  }
}

bool HasPen(const int32_t* penHandle) {
  return penHandle && *penHandle != 0;
}

// A null text as the log shows it.
const char* Shown(const char* text) {
  return text ? text : "(null)";
}

// After new firmware the pen is back under another handle and is read anew.
InsResCode EnumerateMovedPen(const char* tag, int32_t penHandle, InsResCode result) {
  const uint32_t pcRet = pcEnumeratePen(penHandle);
  if (pcRet <= 1) return result;
  g_Logger.LogEvent(tag, "Unable EnumeratePen, pcRet=%d", static_cast<int32_t>(pcRet));
  return insPenFailure;
}

// The bracket around all work on one pen: the pen is marked as in use for as long as the work takes. `target` is what
// the log's lines say of the work besides the pen; `cfg` is an install's configuration, null for a removal.
template <typename Work>
InsResCode RunOnPen(const char* tag, const int32_t* penHandle, const std::string& target, const PenUpdateCfg* cfg,
                    Work work) {
  const int32_t handleBefore = *penHandle;
  g_Logger.LogEvent(tag, "+penHandle=%d, %s", handleBefore, target.c_str());
  const auto refuse = [&](int32_t pcRet, const char* reason) {
    g_Logger.LogEvent(tag, "-Ret=%d, pcRet=%d, penHandle=%d, %s. %s", insPenFailure, pcRet, handleBefore,
                      target.c_str(), reason);
    return insPenFailure;
  };
  uint64_t penId = 0;
  int32_t pcRet = pcGetPenId(handleBefore, &penId, nullptr, nullptr, 0);
  if (pcRet != 0) return refuse(pcRet, "Unable get penId");
  VolatileMark mark(penId);
  pcRet = mark.Register();
  if (pcRet != 0) return refuse(pcRet, "Unable register install_penId");

  InsResCode result = Guarded(insAborted, work);
  pcRet = mark.Unregister();
  if (pcRet != 0) {
    result = insPenFailure;
    g_Logger.LogEvent(tag, "Unable unregister install_penId. pcRet=%d", pcRet);
  }
  if (cfg && (cfg->flags & insFlagFirmware) != 0 && *penHandle != handleBefore) {
    result = EnumerateMovedPen(tag, *penHandle, result);
  }
  g_Logger.LogEvent(tag, "-Ret=%d, penHandle=%d, %s", result, *penHandle, target.c_str());
  return result;
}

}  // namespace

InsResCode insGetVersion(int* parts, char* text, int textSize) {
  InsResCode result = insNoOutput;
  if (parts) {
    std::copy(std::begin(kVersionNumbers), std::end(kVersionNumbers), parts);
    result = insSuccess;
  }
  if (text) {
    // A size of 0 or less means that the host vouches for the room.
    const size_t size = textSize < 1 ? sizeof kVersionText : static_cast<size_t>(textSize);
    std::memcpy(text, kVersionText, std::min(size, sizeof kVersionText));
    result = insSuccess;
  }
  g_Logger.LogEvent("insGetVersion", "Ret=%d, Version=%s", result, kVersionText);
  return result;
}

InsResCode insSetupLog(char enable, const char* logFile, uint64_t maxLogSize) {
  constexpr const char* kTag = "insSetupLog";
  if (!enable) {
    g_Logger.LogEvent(kTag, "Ret=%d, Enable=%d, Version=%s", insSuccess, 0, kVersionText);
    g_Logger.Init(CLogger::kNoFile, nullptr, nullptr, kDefaultLogSize, kShrinkSize, kFlushInterval, kMessageLimit);
    return insSuccess;
  }
  const unsigned long size = maxLogSize == 0 ? kDefaultLogSize : static_cast<uint32_t>(maxLogSize);
  g_Logger.Init(0, logFile ? logFile : "Quarvel.log", nullptr, size, kShrinkSize, kFlushInterval, kMessageLimit);
  g_Logger.LogEvent(kTag, "Ret=%d, Enable=%d, Version=%s, LogFile=%s", insSuccess, 1, kVersionText,
                    logFile ? logFile : "(null)");
  return insSuccess;
}

InsResCode insLoadBundle(const char* bundleFile, int* bundleHandle) {
  constexpr const char* kTag = "insLoadBundle";
  const InsResCode result = Guarded(insExtractFailed, [&] { return g_Quarveler.LoadBundle(bundleFile, bundleHandle); });
  if (bundleHandle) {
    g_Logger.LogEvent(kTag, "Ret=%d, BundleFile=%s, bundleHandle=%d", result, Shown(bundleFile), *bundleHandle);
  } else {
    g_Logger.LogEvent(kTag, "Ret=%d, BundleFile=%s", result, Shown(bundleFile));
  }
  return result;
}

InsResCode insReleaseBundle(int bundleHandle) {
  const InsResCode result = Guarded(insNoBundle, [&] { return g_Quarveler.ReleaseBundle(bundleHandle); });
  g_Logger.LogEvent("insReleaseBundle", "Ret=%d, bundleHandle=%d", result, bundleHandle);
  return result;
}

InsResCode insVerifyBundle(int bundleHandle, const PenUpdateCfg* cfg) {
  const InsResCode result = Guarded(insNotVerified, [&] { return g_Quarveler.VerifyBundle(bundleHandle, cfg); });
  g_Logger.LogEvent("insVerifyBundle", "Ret=%d, bundleHandle=%d", result, bundleHandle);
  return result;
}

InsResCode insVerifyBundleFile(const char* bundleFile, const PenUpdateCfg* cfg) {
  const InsResCode result = Guarded(insNotVerified, [&] { return g_Quarveler.VerifyBundle(bundleFile, cfg); });
  g_Logger.LogEvent("insVerifyBundleFile", "Ret=%d, bundleFile=%s", result, Shown(bundleFile));
  return result;
}

InsResCode insStartInstall(int32_t* penHandle, int bundleHandle, const PenUpdateCfg* cfg,
                           PenUpdateProgressCallback callback, void* userData) {
  constexpr const char* kTag = "insStartInstall";
  const auto install = [&] { return g_Quarveler.StartInstall(penHandle, bundleHandle, cfg, callback, userData); };
  if (HasPen(penHandle)) {
    return Guarded(insAborted, [&] {
      return RunOnPen(kTag, penHandle, "bundleHandle=" + std::to_string(bundleHandle), cfg, install);
    });
  }
  g_Logger.LogEvent(kTag, "+BundleHandle=%d. Perform notify non pen packages.", bundleHandle);
  const InsResCode result = Guarded(insAborted, install);
  g_Logger.LogEvent(kTag, "-Ret=%d, bundleHandle=%d", result, bundleHandle);
  return result;
}

InsResCode insStartInstallFile(int32_t* penHandle, const char* bundleFile, const PenUpdateCfg* cfg,
                               PenUpdateProgressCallback callback, void* userData) {
  constexpr const char* kTag = "insStartInstallFile";
  const auto install = [&] { return g_Quarveler.StartInstall(penHandle, bundleFile, cfg, callback, userData); };
  if (HasPen(penHandle)) {
    return Guarded(insAborted, [&] {
      return RunOnPen(kTag, penHandle, std::string("bundleFile=") + Shown(bundleFile), cfg, install);
    });
  }
  g_Logger.LogEvent(kTag, "+BundleFile=%s. Perform notify non pen packages.", Shown(bundleFile));
  const InsResCode result = Guarded(insAborted, install);
  g_Logger.LogEvent(kTag, "-Ret=%d, bundleFile=%s", result, Shown(bundleFile));
  return result;
}

InsResCode insRemoveGroup(int32_t penHandle, const char* groupName, PenUpdateProgressCallback callback,
                          void* userData) {
  return Guarded(insAborted, [&] {
    return RunOnPen("insRemoveGroup", &penHandle, std::string("groupName=") + Shown(groupName), nullptr,
                    [&] { return g_Quarveler.Remove(penHandle, groupName, callback, userData); });
  });
}

InsResCode insAbort(uint64_t penId) {
  const InsResCode result = g_Quarveler.Abort(penId);
  g_Logger.LogEvent("insAbort", "Ret=%d, penId=%llu", result, static_cast<unsigned long long>(penId));
  return result;
}

InsResCode insAbortAll(void) {
  const InsResCode result = g_Quarveler.AbortAll();
  g_Logger.LogEvent("insAbortAll", "Ret=%d", result);
  return result;
}
