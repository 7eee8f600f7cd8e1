// The exported functions: each a few lines around the installer front, with its line or lines in the log.
#include "installer/QuarvelPublic.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>

#include "Common/HostThread.h"
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

// Runs one call of a host. Nothing is thrown to the host: what escapes gives `onFailure`, and the log says what it was.
// Only a thread that the host ends inside its own callback unwinds through, as it must; destructors put things right.
template <typename Work>
QUARVEL_CATCHES_THREAD_ENDS InsResCode Guarded(const char* tag, InsResCode onFailure, const Work& work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    g_Logger.LogEvent(tag, "Out of memory");
  } catch (const ThreadEnds&) {
    throw;
  } catch (const std::exception& failure) {
    g_Logger.LogEvent(tag, "Unexpected failure: %s", failure.what());
  } catch (...) {
    g_Logger.LogEvent(tag, "Unexpected failure: %s", "unknown");
  }
  return onFailure;
}

// The same, and then the call's line in the log, which `log` writes.
template <typename Work, typename Log>
InsResCode Served(const char* tag, InsResCode onFailure, const Work& work, const Log& log) {
  const CancelShield shield;
  const InsResCode result = Guarded(tag, onFailure, work);
  log(result);
  return result;
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

// What the lines of a run say of it besides the pen, cut to what a line holds.
class Target {
 public:
  Target(const char* what, int number) { snprintf(m_text, sizeof m_text, "%s=%d", what, number); }
  Target(const char* what, const char* text) { snprintf(m_text, sizeof m_text, "%s=%s", what, Shown(text)); }
  const char* text() const { return m_text; }

 private:
  char m_text[kMessageLimit];
};

// The bracket around all work on one pen: the pen is marked as in use for as long as the work takes. `cfg` is an
// install's configuration, null for a removal.
template <typename Work>
InsResCode RunOnPen(const char* tag, const int32_t* penHandle, const Target& target, const PenUpdateCfg* cfg,
                    const Work& work) {
  const CancelShield shield;
  const int32_t handleBefore = *penHandle;
  g_Logger.LogEvent(tag, "+penHandle=%d, %s", handleBefore, target.text());
  const auto refuse = [&](int32_t pcRet, const char* reason) {
    g_Logger.LogEvent(tag, "-Ret=%d, pcRet=%d, penHandle=%d, %s. %s", insPenFailure, pcRet, handleBefore, target.text(),
                      reason);
    return insPenFailure;
  };
  uint64_t penId = 0;
  int32_t pcRet = pcGetPenId(handleBefore, &penId, nullptr, nullptr, 0);
  if (pcRet != 0) return refuse(pcRet, "Unable get penId");
  VolatileMark mark(penId);
  pcRet = mark.Register();
  if (pcRet != 0) return refuse(pcRet, "Unable register install_penId");

  InsResCode result = Guarded(tag, insAborted, work);
  pcRet = mark.Unregister();
  if (pcRet != 0) {
    result = insPenFailure;
    g_Logger.LogEvent(tag, "Unable unregister install_penId. pcRet=%d", pcRet);
  }
  if (cfg && (cfg->flags & insFlagFirmware) != 0 && *penHandle != handleBefore) {
    result = EnumerateMovedPen(tag, *penHandle, result);
  }
  g_Logger.LogEvent(tag, "-Ret=%d, penHandle=%d, %s", result, *penHandle, target.text());
  return result;
}

// An install of either form. Without a pen it reports what stays on the desktop, which `announce` says.
template <typename Bundle, typename Announce>
InsResCode Install(const char* tag, const Target& target, Bundle bundle, int32_t* penHandle, const PenUpdateCfg* cfg,
                   PenUpdateProgressCallback callback, void* userData, const Announce& announce) {
  const CancelShield shield;
  const auto install = [&] { return g_Quarveler.StartInstall(penHandle, bundle, cfg, callback, userData); };
  if (penHandle && *penHandle != 0) return RunOnPen(tag, penHandle, target, cfg, install);
  announce();
  return Served(tag, insAborted, install,
                [&](InsResCode result) { g_Logger.LogEvent(tag, "-Ret=%d, %s", result, target.text()); });
}

}  // namespace

InsResCode insGetVersion(int* parts, char* text, int textSize) {
  const auto tell = [&] {
    if (parts) std::copy(std::begin(kVersionNumbers), std::end(kVersionNumbers), parts);
    // A size of 0 or less means that the host vouches for the room.
    const size_t size = textSize < 1 ? sizeof kVersionText : static_cast<size_t>(textSize);
    if (text) std::memcpy(text, kVersionText, std::min(size, sizeof kVersionText));
    return parts || text ? insSuccess : insNoOutput;
  };
  return Served("insGetVersion", insNoOutput, tell, [](InsResCode result) {
    g_Logger.LogEvent("insGetVersion", "Ret=%d, Version=%s", result, kVersionText);
  });
}

InsResCode insSetupLog(char enable, const char* logFile, uint64_t maxLogSize) {
  constexpr const char* kTag = "insSetupLog";
  const CancelShield shield;
  const auto set = [&](int flags, const char* file, unsigned long size) {
    return Guarded(kTag, insSuccess, [&] {
      if (!g_Logger.Init(flags, file, nullptr, size, kShrinkSize, kFlushInterval, kMessageLimit))
        throw std::bad_alloc();
      return insSuccess;
    });
  };
  if (!enable) {
    g_Logger.LogEvent(kTag, "Ret=%d, Enable=%d, Version=%s", insSuccess, 0, kVersionText);
    return set(CLogger::kNoFile, nullptr, kDefaultLogSize);
  }
  const unsigned long size = maxLogSize == 0 ? kDefaultLogSize : static_cast<uint32_t>(maxLogSize);
  const InsResCode result = set(0, logFile ? logFile : "Quarvel.log", size);
  g_Logger.LogEvent(kTag, "Ret=%d, Enable=%d, Version=%s, LogFile=%s", result, 1, kVersionText, Shown(logFile));
  return result;
}

InsResCode insLoadBundle(const char* bundleFile, int* bundleHandle) {
  constexpr const char* kTag = "insLoadBundle";
  const auto load = [&] { return g_Quarveler.LoadBundle(bundleFile, bundleHandle); };
  return Served(kTag, insExtractFailed, load, [&](InsResCode result) {
    if (bundleHandle) {
      g_Logger.LogEvent(kTag, "Ret=%d, BundleFile=%s, bundleHandle=%d", result, Shown(bundleFile), *bundleHandle);
    } else {
      g_Logger.LogEvent(kTag, "Ret=%d, BundleFile=%s", result, Shown(bundleFile));
    }
  });
}

InsResCode insReleaseBundle(int bundleHandle) {
  const auto release = [&] { return g_Quarveler.ReleaseBundle(bundleHandle); };
  return Served("insReleaseBundle", insNoBundle, release, [&](InsResCode result) {
    g_Logger.LogEvent("insReleaseBundle", "Ret=%d, bundleHandle=%d", result, bundleHandle);
  });
}

InsResCode insVerifyBundle(int bundleHandle, const PenUpdateCfg* cfg) {
  const auto verify = [&] { return g_Quarveler.VerifyBundle(bundleHandle, cfg); };
  return Served("insVerifyBundle", insNotVerified, verify, [&](InsResCode result) {
    g_Logger.LogEvent("insVerifyBundle", "Ret=%d, bundleHandle=%d", result, bundleHandle);
  });
}

InsResCode insVerifyBundleFile(const char* bundleFile, const PenUpdateCfg* cfg) {
  const auto verify = [&] { return g_Quarveler.VerifyBundle(bundleFile, cfg); };
  return Served("insVerifyBundleFile", insNotVerified, verify, [&](InsResCode result) {
    g_Logger.LogEvent("insVerifyBundleFile", "Ret=%d, bundleFile=%s", result, Shown(bundleFile));
  });
}

InsResCode insStartInstall(int32_t* penHandle, int bundleHandle, const PenUpdateCfg* cfg,
                           PenUpdateProgressCallback callback, void* userData) {
  constexpr const char* kTag = "insStartInstall";
  return Install(kTag, Target("bundleHandle", bundleHandle), bundleHandle, penHandle, cfg, callback, userData,
                 [&] { g_Logger.LogEvent(kTag, "+BundleHandle=%d. Perform notify non pen packages.", bundleHandle); });
}

InsResCode insStartInstallFile(int32_t* penHandle, const char* bundleFile, const PenUpdateCfg* cfg,
                               PenUpdateProgressCallback callback, void* userData) {
  constexpr const char* kTag = "insStartInstallFile";
  return Install(kTag, Target("bundleFile", bundleFile), bundleFile, penHandle, cfg, callback, userData, [&] {
    g_Logger.LogEvent(kTag, "+BundleFile=%s. Perform notify non pen packages.", Shown(bundleFile));
  });
}

InsResCode insRemoveGroup(int32_t penHandle, const char* groupName, PenUpdateProgressCallback callback,
                          void* userData) {
  return RunOnPen("insRemoveGroup", &penHandle, Target("groupName", groupName), nullptr,
                  [&] { return g_Quarveler.Remove(penHandle, groupName, callback, userData); });
}

InsResCode insAbort(uint64_t penId) {
  const auto abort = [&] { return g_Quarveler.Abort(penId); };
  return Served("insAbort", insNotRunning, abort, [&](InsResCode result) {
    g_Logger.LogEvent("insAbort", "Ret=%d, penId=%llu", result, static_cast<unsigned long long>(penId));
  });
}

InsResCode insAbortAll(void) {
  const auto abort = [] { return g_Quarveler.AbortAll(); };
  return Served("insAbortAll", insSuccess, abort,
                [](InsResCode result) { g_Logger.LogEvent("insAbortAll", "Ret=%d", result); });
}
