#include "desk/WaitWatch.h"

#include <algorithm>

namespace {

constexpr int kLongToRead = 3;  // seconds; most pens are read in one

}  // namespace

// The last byte of a download is reported twice: when it was sent, and once more when the pen is back.
void WaitWatch::OnReport(int32_t penHandle, std::string_view fileType, bool complete) {
  m_penHandle = penHandle;
  m_firmware = m_firmware && fileType == "Firmware";
  if (!complete) {
    m_phase = Phase::kDownloading;
  } else {
    m_phase = m_phase == Phase::kDownloading ? Phase::kDownloaded : Phase::kBetween;
  }
}

WaitFor WaitWatch::Expected(bool present) const {
  if (!m_firmware || m_phase == Phase::kDownloading) return WaitFor::kNothing;
  if (!present) return WaitFor::kReturn;
  if (m_phase == Phase::kSilent) return WaitFor::kPerhapsLeave;
  return m_phase == Phase::kDownloaded ? WaitFor::kLeave : WaitFor::kNothing;
}

Wait WaitWatch::Poll(std::span<const int32_t> handles, Time now) {
  bool present = std::find(handles.begin(), handles.end(), m_penHandle) != handles.end();
  WaitFor what = Expected(present);
  if (what != m_what) {
    m_what = what;
    m_since = now;
  }
  if (what == WaitFor::kNothing) return {};
  auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - m_since).count();
  if (what == WaitFor::kPerhapsLeave && seconds < kLongToRead) return {};
  return {what, static_cast<int>(std::min<int64_t>(seconds, Wait::kLimit))};
}
