// Work shared out to one thread per core, and the way to name the failure that a single thread would have met first.
// Bodies take their pieces from a counter that they share, lowest first, so that it does not matter how many run.
#ifndef QUARVEL_COMMON_WORKERS_H
#define QUARVEL_COMMON_WORKERS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>

class CWorkers {
 public:
  // How many threads `pieces` of work are worth: one per core that this process may use, never more than there are
  // pieces, and at least one.
  static unsigned CountFor(size_t pieces);

  // Calls work(0) to work(pieces - 1), each once, on that many threads, and returns when all have returned. After an
  // exception, which is thrown on to the caller at the end, some pieces may be left undone.
  template <class Work>
  static void Share(size_t pieces, const Work& work) {
    std::atomic<size_t> next = 0;
    Run(CountFor(pieces), [&](unsigned) {
      for (size_t piece = 0; (piece = next++) < pieces;) work(piece);
    });
  }

  // Calls body(0) to body(count - 1), the first on the calling thread and each other on a thread of its own, and
  // returns when all have returned. A thread that the system refuses is done without. The threads take no signals of
  // the host. An exception of a body is thrown on to the caller, at the end.
  static void Run(unsigned count, const std::function<void(unsigned worker)>& body);
};

// Keeps the failure with the lowest index out of those that several threads report.
template <class Failure>
class CFirstFailure {
 public:
  // Whether work on `index` no longer matters, because something before it has failed.
  bool IsMoot(size_t index) const { return index > m_index.load(std::memory_order_relaxed); }

  void Report(size_t index, Failure failure) {
    std::lock_guard lock(m_lock);
    if (index >= m_index) return;
    m_index = index;
    m_failure = std::move(failure);
  }

  // For the time after the threads have ended.
  size_t index() const { return m_index; }
  const std::optional<Failure>& failure() const { return m_failure; }

 private:
  std::mutex m_lock;
  std::atomic<size_t> m_index = SIZE_MAX;
  std::optional<Failure> m_failure;
};

#endif
