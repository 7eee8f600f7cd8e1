// Pens that answer anything: a pen library for tests that keeps the interface's rules just well enough for runs to get
// somewhere, and breaks them at random. Counts are negative or too large, texts fill their fields without an end,
// progress comes from two threads at once, for another handle, or long after the transfer. Linked into a program, it
// stands before libTessvik. Any thread may call anything.
#ifndef QUARVEL_TESTS_CHAOS_WILDPENS_H
#define QUARVEL_TESTS_CHAOS_WILDPENS_H

#include <cstdint>

namespace wild {

constexpr int kPens = 3;

// What a pen is called now; its handle changes when it re-attaches.
int32_t HandleOf(int pen);
uint64_t IdOf(int pen);

// Whether every pen was given back: no volatile mark is set and no channel is open.
bool AllAtRest();

// Calls back for transfers that have long ended.
void CallLate();

// The thread's source of chance; every thread's is its own.
int Below(int limit);
inline bool OneIn(int count) {
  return Below(count) == 0;
}

}  // namespace wild

#endif
