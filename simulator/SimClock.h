// The simulator's time: the system's, or that of a test. Any thread.
#ifndef QUARVEL_SIMULATOR_SIMCLOCK_H
#define QUARVEL_SIMULATOR_SIMCLOCK_H

#include <cstdint>

namespace sim {

using NowFunction = int64_t (*)(void* context);
using SleepFunction = void (*)(void* context, int64_t milliseconds);

// Null functions stand for the system's clock.
void SetClock(NowFunction now, SleepFunction sleep, void* context);

// Milliseconds since the epoch.
int64_t Now();
void Sleep(int64_t milliseconds);

}  // namespace sim

#endif
