// A transfer channel to one pen, closed when the object goes.
#ifndef QUARVEL_INSTALLER_UPDATER_OBEXCHANNEL_H
#define QUARVEL_INSTALLER_UPDATER_OBEXCHANNEL_H

#include "platform/Tessvik.h"

class ObexChannel {
 public:
  ObexChannel() = default;
  ~ObexChannel() {
    if (m_open) pcStopObex(m_channel);
  }
  ObexChannel(const ObexChannel&) = delete;
  ObexChannel& operator=(const ObexChannel&) = delete;

  // Returns what the pen library returns; 0 when the channel is open.
  int32_t Start(int32_t penHandle) {
    constexpr int32_t kTimeoutMs = 30000;
    const int32_t pcRet = pcStartObex(&m_channel, penHandle, kTimeoutMs);
    m_open = pcRet == 0;
    return pcRet;
  }

  int32_t channel() const { return m_channel; }

 private:
  int32_t m_channel = 0;
  bool m_open = false;
};

#endif
