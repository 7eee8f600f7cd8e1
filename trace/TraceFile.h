// The file that a process records into. Lines are added whole, by one write each, so that those of several threads and
// processes stay apart and a killed process leaves at most one cut line, its last. A file that has grown to half of the
// bound becomes FILE.1, taking that one's place, and a new one begins.
//
// Nothing here waits, fails or raises a signal for the host: what cannot be written is counted and told by the next
// line that can. Any thread, also of a process that was forked.
#ifndef QUARVEL_TRACE_TRACEFILE_H
#define QUARVEL_TRACE_TRACEFILE_H

#include <stdint.h>

#include "trace/Line.h"

namespace trace {

// Null ends the recording. Returns 0 or an error number.
int32_t ChooseFile(const char* file);

bool IsRecording();

// Finishes the line and adds it.
void Append(Line& line);

// Microseconds since the epoch.
int64_t Microseconds();

// Of the caller, without asking the system each time.
int32_t ProcessId();
int32_t ThreadId();

// A lock that is never waited for long: its holder may be a thread that a fork left behind, or this thread, interrupted
// by a signal.
class BriefLock {
 public:
  bool TryFor();  // a few milliseconds
  void Release() { __atomic_clear(&m_isHeld, __ATOMIC_RELEASE); }

 private:
  bool m_isHeld = false;
};

}  // namespace trace

#endif
