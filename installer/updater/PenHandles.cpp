// Which handle is the pen's: after it re-attached, and while it leaves and returns for its firmware.
#include <algorithm>
#include <mutex>

#include "Common/Clock.h"
#include "Common/Timer.h"
#include "installer/updater/PenLibrary.h"
#include "installer/updater/PenUpdater.h"

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

// Whether the handle is the pen's: by its id or, for one that cannot tell its id, by being the first to claim it.
bool IsMyPen(const UpdaterPen& pen, int32_t handle) {
  uint64_t penId = 0;
  if (pcGetPenId(handle, &penId, nullptr, nullptr, 0) == 0) return penId == pen.m_penId;
  return pen.m_penType == kAnonymousPenType && IsAnonymousPen(handle) && CPenUpdater::SetDirtyHandle(handle);
}

}  // namespace

bool CPenUpdater::SetDirtyHandle(int32_t handle) {
  const std::lock_guard lock(m_gHandleLocker);
  if (std::find(m_mDirtyHandles.begin(), m_mDirtyHandles.end(), handle) != m_mDirtyHandles.end()) return false;
  m_mDirtyHandles.push_back(handle);
  return true;
}

int32_t CPenUpdater::RefreshPenHandle() {
  const ConnectedPens pens;
  for (const int32_t handle : pens.handles()) {
    uint64_t penId = 0;
    if (pcGetPenId(handle, &penId, nullptr, nullptr, 0) != 0 || penId != m_penId) continue;
    m_penHandle = handle;
    break;
  }
  return m_penHandle;
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
      if (!IsMyPen(*this, handle)) continue;
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
