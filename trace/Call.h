// One call of a pen function on its way through: recorded when it begins and when it has ended, so that a call that
// never ends is in the trace too. On the stack of the calling thread. The host's error number passes through as the pen
// library leaves it.
#ifndef QUARVEL_TRACE_CALL_H
#define QUARVEL_TRACE_CALL_H

#include <errno.h>
#include <stdint.h>

#include "trace/Line.h"
#include "trace/TraceFile.h"

namespace trace {

class Ticks;

class Call {
 public:
  Call(const char* function, int32_t penHandle);
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  // False when nothing is recorded; the line is then not to be filled.
  explicit operator bool() const { return m_number != 0; }
  // Where arguments go before Make, and answers after it.
  Line& line() { return m_line; }
  uint32_t number() const { return m_number; }

  // Calls the pen library. A function that it lacks fails with -1.
  template <typename Result, typename... Parameters, typename... Arguments>
  Result Make(Result (*next)(Parameters...), Arguments... arguments) {
    if (m_number != 0) WriteBegin(next != nullptr);
    errno = m_error;
    const Result result = next ? next(arguments...) : static_cast<Result>(-1);
    m_error = errno;
    if (m_number != 0) BeginEnd(static_cast<int64_t>(static_cast<int32_t>(result)));
    return result;
  }

  // Whether the answers of a call with this result are recorded.
  bool HasAnswers(int64_t result) const { return m_number != 0 && result == 0; }
  void End(Ticks* ticks = nullptr);

 private:
  void WriteBegin(bool isThere);
  void BeginEnd(int64_t result);

  int m_error;
  uint32_t m_number;
  uint32_t m_outer;
  uintptr_t m_outerFrame;
  Line m_line;
};

}  // namespace trace

#endif
