#include "Common/Timer.h"

#include "Common/Clock.h"

int32_t CTimer::Start() {
  m_start = static_cast<int32_t>(Clock::Current().Seconds());
  m_elapsed = 0;
  return m_start;
}

int32_t CTimer::Finish() {
  m_elapsed = Count();
  return m_elapsed;
}

int32_t CTimer::Count() const {
  return static_cast<int32_t>(static_cast<uint32_t>(Clock::Current().Seconds()) - static_cast<uint32_t>(m_start));
}
