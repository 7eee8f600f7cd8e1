#include "Common/Clock.h"

#include <atomic>
#include <ctime>
#include <thread>

namespace {

class SystemClock final : public Clock {
 public:
  int64_t Seconds() override { return static_cast<int64_t>(std::time(nullptr)); }
  void Sleep(std::chrono::milliseconds duration) override { std::this_thread::sleep_for(duration); }
};

constinit std::atomic<Clock*> g_replacement = nullptr;

}  // namespace

Clock& Clock::Current() {
  static SystemClock system;
  Clock* replacement = g_replacement.load(std::memory_order_acquire);
  return replacement ? *replacement : system;
}

Clock* Clock::Replace(Clock* clock) {
  return g_replacement.exchange(clock, std::memory_order_acq_rel);
}
