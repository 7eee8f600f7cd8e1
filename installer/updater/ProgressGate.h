// What the pen library gets as the context of a transfer. A pen library may call the progress function late, from
// several threads at once or with a context of long ago, so the context is a gate that is never freed: it leads to an
// updater only while that updater's transfer runs, and lets one call through at a time.
#ifndef QUARVEL_INSTALLER_UPDATER_PROGRESSGATE_H
#define QUARVEL_INSTALLER_UPDATER_PROGRESSGATE_H

#include <mutex>

class CPenUpdater;

class ProgressGate {
 public:
  // Takes a gate that no transfer uses; gates are used again, never freed while the library is loaded.
  static ProgressGate* Take();
  static void GiveBack(ProgressGate* gate);

  void Open(CPenUpdater* updater) {
    const std::lock_guard lock(m_mutex);
    m_updater = updater;
  }
  // Waits for a call that is inside.
  void Close() { Open(nullptr); }

  // Calls `use` with the updater whose transfer runs, under the gate's lock; returns 0 when there is none.
  template <typename Use>
  int Pass(Use use) {
    const std::lock_guard lock(m_mutex);
    return m_updater ? use(*m_updater) : 0;
  }

 private:
  std::recursive_mutex m_mutex;  // recursive: a host's callback may make the pen library call again on its thread
  CPenUpdater* m_updater = nullptr;
};

// A gate that is open for one transfer.
class OpenGate {
 public:
  explicit OpenGate(CPenUpdater* updater) : m_gate(ProgressGate::Take()) { m_gate->Open(updater); }
  ~OpenGate() {
    m_gate->Close();
    ProgressGate::GiveBack(m_gate);
  }
  OpenGate(const OpenGate&) = delete;
  OpenGate& operator=(const OpenGate&) = delete;

  void* context() const { return m_gate; }

 private:
  ProgressGate* m_gate;
};

#endif
