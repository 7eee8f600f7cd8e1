// A stopwatch in whole seconds. It keeps no shared state; one thread uses one timer. Start times are 32 bits wide and
// begin anew in January 2038; what is counted from them is right all the same.
#ifndef QUARVEL_COMMON_TIMER_H
#define QUARVEL_COMMON_TIMER_H

#include <cstdint>

class CTimer {
 public:
  // Starts (again) and returns the start time in seconds since the epoch.
  int32_t Start();
  // Stores and returns the seconds since the start.
  int32_t Finish();
  // Returns the seconds since the start without storing them.
  int32_t Count() const;
  // Returns what the last Finish stored, 0 since the last Start.
  int32_t ElapsedTime() const { return m_elapsed; }

 private:
  int32_t m_start = 0;
  int32_t m_elapsed = 0;
};

#endif
