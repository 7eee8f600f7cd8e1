// A clock in which a sleep ends at once and takes the time along: for the library and, through its control functions,
// for the simulated pens. In force from construction to destruction.
#ifndef QUARVEL_TESTS_SUPPORT_FAKECLOCK_H
#define QUARVEL_TESTS_SUPPORT_FAKECLOCK_H

#include <atomic>

#include "Common/Clock.h"

class FakeClock : public Clock {
 public:
  explicit FakeClock(int64_t seconds = 1'200'000'000) : m_milliseconds(seconds * 1000) { Clock::Replace(this); }
  ~FakeClock() override { Clock::Replace(nullptr); }

  int64_t Seconds() override { return m_milliseconds / 1000; }
  void Sleep(std::chrono::milliseconds duration) override { m_milliseconds += duration.count(); }
  int64_t Milliseconds() const { return m_milliseconds; }

 private:
  std::atomic<int64_t> m_milliseconds;
};

#endif
