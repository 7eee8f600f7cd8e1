#include "installer/updater/PenUpdater.h"

#include <algorithm>
#include <mutex>

#include "Common/Clock.h"
#include "Common/Logger_mac.h"
#include "Common/Timer.h"
#include "installer/updater/PenLibrary.h"

std::vector<CPenUpdater*> CPenUpdater::m_gUpdaters;
CLocker CPenUpdater::m_gLocker;
std::vector<int32_t> CPenUpdater::m_mDirtyHandles;
CLocker CPenUpdater::m_gHandleLocker;

namespace {

// A pen takes a few seconds to leave or to return; one that needs longer than this has failed.
constexpr int32_t kWaitSeconds = 60;
constexpr std::chrono::seconds kPollInterval(1);

// Pens of this type cannot tell their id while they are in download mode.
constexpr int32_t kAnonymousPenType = 1;

bool IsAnonymousPen(int32_t handle) {
  int32_t state = 0;
  if (pcGetPenState(handle, &state, 0, 0) != 0 || state != pcPenStateFirmwareDownload) return false;
  int32_t type = 0;
  return pcGetPenType(handle, &type, 0, 0) == 0 && (type & 0xffff) == kAnonymousPenType;
}

}  // namespace

CPenUpdater::CPenUpdater() {
  const std::lock_guard lock(m_gLocker);
  m_gUpdaters.push_back(this);
}

CPenUpdater::~CPenUpdater() {
  m_abort = true;
  const std::lock_guard lock(m_gLocker);
  const auto found = std::find(m_gUpdaters.begin(), m_gUpdaters.end(), this);
  if (found != m_gUpdaters.end()) m_gUpdaters.erase(found);
}

void CPenUpdater::Abort() {
  m_abort = true;
  g_Logger.LogEvent("Abort", "Abort. PenId=%llu", static_cast<unsigned long long>(m_penId));
}

InsResCode CPenUpdater::Abort(uint64_t penId) {
  const std::lock_guard lock(m_gLocker);
  const auto found = std::find_if(m_gUpdaters.begin(), m_gUpdaters.end(),
                                  [penId](const CPenUpdater* updater) { return updater->m_penId == penId; });
  if (found == m_gUpdaters.end()) return insNotRunning;
  (*found)->Abort();
  return insSuccess;
}

InsResCode CPenUpdater::AbortAll() {
  const std::lock_guard lock(m_gLocker);
  for (CPenUpdater* updater : m_gUpdaters) updater->Abort();
  return insSuccess;
}

bool CPenUpdater::SetDirtyHandle(int32_t handle) {
  const std::lock_guard lock(m_gHandleLocker);
  if (std::find(m_mDirtyHandles.begin(), m_mDirtyHandles.end(), handle) != m_mDirtyHandles.end()) return false;
  m_mDirtyHandles.push_back(handle);
  return true;
}

int32_t CPenUpdater::RefreshPenHandle() {
  const ConnectedPens pens;
  for (const int32_t handle : pens.handles()) {
    if (!HasMyId(handle)) continue;
    m_penHandle = handle;
    break;
  }
  return m_penHandle;
}

bool CPenUpdater::HasMyId(int32_t handle) const {
  uint64_t penId = 0;
  return pcGetPenId(handle, &penId, nullptr, nullptr, 0) == 0 && penId == m_penId;
}

// Whether the pen is this updater's: by its id or, for one that cannot tell its id, by being the first to claim it.
bool CPenUpdater::IsMyPen(int32_t handle) {
  uint64_t penId = 0;
  if (pcGetPenId(handle, &penId, nullptr, nullptr, 0) == 0) return penId == m_penId;
  return m_penType == kAnonymousPenType && IsAnonymousPen(handle) && SetDirtyHandle(handle);
}

InsResCode CPenUpdater::WaitPenDetach() {
  if (m_penHandle == 0) return insNoResource;
  CTimer timer;
  timer.Start();
  while (true) {
    Clock::Current().Sleep(kPollInterval);
    const bool present = ConnectedPens().Contains(m_penHandle);
    if (timer.Count() > kWaitSeconds) return insTimeout;  // even when the pen has left in this very poll
    if (m_abort || !present) return insSuccess;
  }
}

InsResCode CPenUpdater::WaitPenAttach() {
  CTimer timer;
  timer.Start();
  while (true) {
    if (m_abort) return insSuccess;
    if (timer.Count() > kWaitSeconds) return insTimeout;
    const ConnectedPens pens;
    for (const int32_t handle : pens.handles()) {
      if (!IsMyPen(handle)) continue;
      m_penHandle = handle;
      return insSuccess;
    }
    Clock::Current().Sleep(kPollInterval);
  }
}

InsResCode CPenUpdater::WaitPen() {
  const InsResCode result = WaitPenDetach();
  return result == insSuccess ? WaitPenAttach() : result;
}
