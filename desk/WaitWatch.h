// Tells when the library waits for a pen to leave the bus or to come back, which happens around a firmware download.
// The library does not report its waits; they show in what the callback reported last and in the handles on the bus:
//   - a download that has sent its last byte: the pen must leave, then return;
//   - a pen that is gone while no download runs: it was sent into download mode and must return.
// That a pen is on its way into download mode does not show before it is gone: a run that has not reported anything
// for some seconds still reads the pen, or waits for it to leave.
// One per pen; its owner serialises the calls.
#ifndef QUARVEL_DESK_WAITWATCH_H
#define QUARVEL_DESK_WAITWATCH_H

#include <chrono>
#include <cstdint>
#include <span>
#include <string_view>

enum class WaitFor { kNothing, kPerhapsLeave, kLeave, kReturn };

struct Wait {
  WaitFor what = WaitFor::kNothing;
  int seconds = 0;  // passed so far, at most kLimit
  static constexpr int kLimit = 60;
  bool operator==(const Wait&) const = default;
};

class WaitWatch {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // `firmware`: the run may install firmware; without it the pen never leaves on purpose.
  WaitWatch(int32_t penHandle, bool firmware) : m_penHandle(penHandle), m_firmware(firmware) {}

  // A progress report of the library.
  void OnReport(int32_t penHandle, std::string_view fileType, bool complete);
  // What is waited for, given the handles that are on the bus now.
  Wait Poll(std::span<const int32_t> handles, Time now);

 private:
  enum class Phase { kSilent, kBetween, kDownloading, kDownloaded };

  WaitFor Expected(bool present) const;

  int32_t m_penHandle;
  bool m_firmware;
  Phase m_phase = Phase::kSilent;
  WaitFor m_what = WaitFor::kNothing;
  Time m_since{};
};

#endif
