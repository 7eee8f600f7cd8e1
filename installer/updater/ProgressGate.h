// What the pen library gets as the context of a transfer. A pen library may call the progress function late, from
// several threads at once, with a context of long ago or while the process exits, so the context is a gate that is
// never freed: each run has one, it is open for exactly the pen call that transfers, and it lets one call through at a
// time.
#ifndef QUARVEL_INSTALLER_UPDATER_PROGRESSGATE_H
#define QUARVEL_INSTALLER_UPDATER_PROGRESSGATE_H

#include <cstdint>
#include <mutex>

class CPenUpdater;

class ProgressGate {
 public:
  // Gates are used again, the longest unused one first and only while many lie unused, so that a late call of a run
  // does not count as one of the next.
  static ProgressGate* Take(CPenUpdater& updater);
  static void GiveBack(ProgressGate* gate);

  void Open(int32_t penHandle);
  // Waits for a call that is inside.
  void Close();

  // A call of the progress function; non-zero asks the pen library to stop. Calls about another pen are answered 0,
  // those for a run that was aborted or has ended 1, and those that come while no transfer runs reach no host.
  int32_t Tick(int32_t penHandle, uint64_t totalBytes, uint64_t doneBytes);

 private:
  void SetUpdater(CPenUpdater* updater);

  std::recursive_mutex m_mutex;  // recursive: a host's callback may make the pen library call again on its thread
  CPenUpdater* m_updater = nullptr;
  int32_t m_penHandle = 0;  // of the last transfer
  bool m_isOpen = false;
  ProgressGate* m_nextFree = nullptr;
};

// The gate of one run.
class RunGate {
 public:
  explicit RunGate(CPenUpdater& updater) : m_gate(ProgressGate::Take(updater)) {}
  ~RunGate() { ProgressGate::GiveBack(m_gate); }
  RunGate(const RunGate&) = delete;
  RunGate& operator=(const RunGate&) = delete;

  ProgressGate* gate() const { return m_gate; }

 private:
  ProgressGate* m_gate;
};

// Keeps a gate open for one pen call.
class OpenGate {
 public:
  OpenGate(const RunGate& of, int32_t penHandle) : m_gate(of.gate()) { m_gate->Open(penHandle); }
  ~OpenGate() { m_gate->Close(); }
  OpenGate(const OpenGate&) = delete;
  OpenGate& operator=(const OpenGate&) = delete;

  void* context() const { return m_gate; }

 private:
  ProgressGate* m_gate;
};

#endif
