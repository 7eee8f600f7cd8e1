#include "installer/updater/ProgressGate.h"

#include <utility>

#include "installer/updater/PenUpdater.h"

namespace {

constexpr size_t kSpareGates = 16;

// The unused gates, in the order in which they were given back. Nothing here is destroyed when the process exits.
std::mutex g_freeLock;
ProgressGate* g_firstFree = nullptr;
ProgressGate* g_lastFree = nullptr;
size_t g_freeCount = 0;

}  // namespace

ProgressGate* ProgressGate::Take(CPenUpdater& updater) {
  ProgressGate* gate = nullptr;
  {
    const std::lock_guard lock(g_freeLock);
    if (g_freeCount > kSpareGates) {
      gate = std::exchange(g_firstFree, g_firstFree->m_nextFree);
      --g_freeCount;
    }
  }
  if (!gate) gate = new ProgressGate;
  gate->SetUpdater(&updater);
  return gate;
}

void ProgressGate::GiveBack(ProgressGate* gate) {
  gate->SetUpdater(nullptr);
  const std::lock_guard lock(g_freeLock);
  gate->m_nextFree = nullptr;
  if (g_freeCount++ == 0) {
    g_firstFree = gate;
  } else {
    g_lastFree->m_nextFree = gate;
  }
  g_lastFree = gate;
}

void ProgressGate::SetUpdater(CPenUpdater* updater) {
  const std::lock_guard lock(m_mutex);
  m_updater = updater;
}

void ProgressGate::Open(int32_t penHandle) {
  const std::lock_guard lock(m_mutex);
  m_penHandle = penHandle;
  m_isOpen = true;
}

void ProgressGate::Close() {
  const std::lock_guard lock(m_mutex);
  m_isOpen = false;
}

int32_t ProgressGate::Tick(int32_t penHandle, uint64_t totalBytes, uint64_t doneBytes) {
  const std::lock_guard lock(m_mutex);
  if (penHandle != m_penHandle) return 0;
  if (!m_updater || m_updater->m_abort) return 1;
  return m_isOpen ? m_updater->NotifyProgress(doneBytes, totalBytes) : 0;
}
