// The registry of live updaters, and the abort requests that reach them through it.
#include "installer/updater/PenUpdater.h"

#include <algorithm>
#include <mutex>

#include "Common/Logger_mac.h"

namespace {

// Not destroyed when the process exits: runs on other threads may go on meanwhile.
template <typename Table>
union Immortal {
  Table table{};

  Immortal() {}
  ~Immortal() {}
};
Immortal<std::vector<CPenUpdater*>> g_updaters;
Immortal<std::vector<int32_t>> g_dirtyHandles;

}  // namespace

std::vector<CPenUpdater*>& CPenUpdater::m_gUpdaters = g_updaters.table;
CLocker CPenUpdater::m_gLocker;
std::vector<int32_t>& CPenUpdater::m_mDirtyHandles = g_dirtyHandles.table;
CLocker CPenUpdater::m_gHandleLocker;

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
