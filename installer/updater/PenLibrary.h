// Reading the pen library's answers with the caution that foreign input needs.
#ifndef QUARVEL_INSTALLER_UPDATER_PENLIBRARY_H
#define QUARVEL_INSTALLER_UPDATER_PENLIBRARY_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

#include "Common/Logger_mac.h"
#include "platform/Tessvik.h"

// The handles of the connected pens, 20 at most.
class ConnectedPens {
 public:
  ConnectedPens() {
    const int32_t count = pcGetPenHandles(m_handles.data(), static_cast<int32_t>(m_handles.size()));
    m_count = static_cast<size_t>(std::clamp<int32_t>(count, 0, static_cast<int32_t>(m_handles.size())));
  }
  std::span<const int32_t> handles() const { return std::span(m_handles).first(m_count); }
  bool Contains(int32_t handle) const {
    return std::find(handles().begin(), handles().end(), handle) != handles().end();
  }

 private:
  std::array<int32_t, 20> m_handles{};
  size_t m_count = 0;
};

// Asks for the number of penlets. More than kMaxPenlets are no pen's: the rest is not read, so that a wrong count
// cannot keep a run busy for hours. `tag` is the function that asks, for the log.
inline int32_t CountPenlets(int32_t penHandle, const char* tag, int32_t* count) {
  constexpr int32_t kMaxPenlets = 4096;
  *count = 0;
  const int32_t pcRet = pcGetPenletCount(penHandle, count);
  if (pcRet == 0 && *count > kMaxPenlets) {
    g_Logger.LogEvent(tag, "Too many penlets, %d of them left out. penHandle=%d", *count - kMaxPenlets, penHandle);
  }
  *count = std::clamp(*count, 0, kMaxPenlets);
  return pcRet;
}

// Reads one penlet into a zeroed record.
inline int32_t ReadPenletItem(int32_t penHandle, int32_t index, PenletInfo* item) {
  *item = PenletInfo{};
  return pcGetPenletItem(penHandle, index, item);
}

#endif
