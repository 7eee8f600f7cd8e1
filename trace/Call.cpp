#include "trace/Call.h"

#include <atomic>

#include "trace/Ticks.h"

namespace trace {
namespace {

std::atomic<uint32_t> g_last = 0;

// The call in which this thread is, and where on the stack it stands. An exception that passed through a call leaves
// both behind; the next call, which stands no deeper, then knows that it is not within that one.
thread_local uint32_t t_within = 0;
thread_local uintptr_t t_frame = 0;

uint32_t NextNumber() {
  const uint32_t number = g_last.fetch_add(1, std::memory_order_relaxed) + 1;
  return number != 0 ? number : NextNumber();
}

}  // namespace

Call::Call(const char* function, int32_t penHandle)
    : m_error(errno), m_number(IsRecording() ? NextNumber() : 0), m_outer(t_within), m_outerFrame(t_frame) {
  if (m_number == 0) return;
  const uintptr_t frame = reinterpret_cast<uintptr_t>(this);
  if (frame >= t_frame) m_outer = 0;
  m_line.Unsigned("begin", m_number).Number("process", ProcessId()).Number("thread", ThreadId());
  m_line.Number("time", Microseconds()).Text("function", function, 32).Number("pen", penHandle);
  if (m_outer != 0) m_line.Unsigned("within", m_outer);
  m_line.OpenObject("in");
  t_within = m_number;
  t_frame = frame;
}

void Call::WriteBegin(bool isThere) {
  m_line.Close();
  if (!isThere) m_line.Flag("missing", true);
  Append(m_line);
}

void Call::BeginEnd(int64_t result) {
  m_line.Clear();
  m_line.Unsigned("end", m_number).Number("process", ProcessId()).Number("time", Microseconds());
  m_line.Number("result", result).OpenObject("out");
}

void Call::End(Ticks* ticks) {
  if (m_number != 0) {
    m_line.Close();
    if (ticks) ticks->Describe(m_line);
    Append(m_line);
    t_within = m_outer;
    t_frame = m_outerFrame;
  }
  errno = m_error;
}

}  // namespace trace
