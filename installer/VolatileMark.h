// The mark that keeps two runs off one pen, in this process and in others: registered with the pen library for the time
// of a run and taken back on every path.
#ifndef QUARVEL_INSTALLER_VOLATILEMARK_H
#define QUARVEL_INSTALLER_VOLATILEMARK_H

#include "platform/Tessvik.h"

class VolatileMark {
 public:
  explicit VolatileMark(uint64_t penId) : m_penId(penId) {}
  ~VolatileMark() { Unregister(); }
  VolatileMark(const VolatileMark&) = delete;
  VolatileMark& operator=(const VolatileMark&) = delete;

  // Both return what the pen library returns, 0 for success.
  int32_t Register() {
    const int32_t pcRet = pcRegisterVolatile(kName, m_penId);
    m_registered = pcRet == 0;
    return pcRet;
  }
  int32_t Unregister() {
    if (!m_registered) return 0;
    m_registered = false;
    return pcUnRegisterVolatile(kName, m_penId);
  }

 private:
  static constexpr const char* kName = "Install";
  uint64_t m_penId;
  bool m_registered = false;
};

#endif
