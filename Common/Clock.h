// Where the library takes the time from and where it sleeps: one small seam, so that a test replaces minutes of waiting
// by milliseconds. There is one clock for the process; it may be read from any thread.
#ifndef QUARVEL_COMMON_CLOCK_H
#define QUARVEL_COMMON_CLOCK_H

#include <chrono>
#include <cstdint>

class Clock {
 public:
  virtual ~Clock() = default;

  // Wall-clock seconds since the epoch.
  virtual int64_t Seconds() = 0;

  // Blocks the calling thread.
  virtual void Sleep(std::chrono::milliseconds duration) = 0;

  // The clock in force: the system's until another one is put in its place.
  static Clock& Current();

  // Puts `clock` in force (null for the system's) and returns the one that was, null if it was the system's. Not owned:
  // the caller keeps it alive until it is replaced again. For tests.
  static Clock* Replace(Clock* clock);
};

#endif
