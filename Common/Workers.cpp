#include "Common/Workers.h"

#include <sched.h>
#include <signal.h>

#include <algorithm>
#include <exception>
#include <system_error>
#include <thread>
#include <vector>

namespace {

unsigned UsableCores() {
  cpu_set_t cores;
  if (sched_getaffinity(0, sizeof(cores), &cores) == 0) return static_cast<unsigned>(std::max(1, CPU_COUNT(&cores)));
  return std::max(1U, std::thread::hardware_concurrency());
}

// Threads started meanwhile begin with every signal blocked.
class NoSignalsForNewThreads {
 public:
  NoSignalsForNewThreads() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_before);
  }
  ~NoSignalsForNewThreads() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
  NoSignalsForNewThreads(const NoSignalsForNewThreads&) = delete;
  NoSignalsForNewThreads& operator=(const NoSignalsForNewThreads&) = delete;

 private:
  sigset_t m_before;
};

}  // namespace

unsigned CWorkers::CountFor(size_t pieces) {
  return static_cast<unsigned>(std::clamp<size_t>(pieces, 1, UsableCores()));
}

void CWorkers::Run(unsigned count, const std::function<void(unsigned)>& body) {
  std::mutex lock;
  std::exception_ptr thrown;
  const auto guarded = [&](unsigned worker) {
    try {
      body(worker);
    } catch (...) {
      std::lock_guard guard(lock);
      thrown = std::current_exception();
    }
  };
  {
    std::vector<std::jthread> threads;
    {
      NoSignalsForNewThreads quiet;
      try {
        threads.reserve(count);
        for (unsigned worker = 1; worker < count; ++worker) threads.emplace_back(guarded, worker);
      } catch (const std::system_error&) {
        // No more threads to be had: the others do all the work.
      }
    }
    guarded(0);
  }
  if (thrown) std::rethrow_exception(thrown);
}
