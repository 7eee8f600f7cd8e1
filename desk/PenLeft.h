// How a run left a pen: looked at once more, when a stop or a failure may have left it half-way.
#ifndef QUARVEL_DESK_PENLEFT_H
#define QUARVEL_DESK_PENLEFT_H

#include <string>
#include <string_view>

#include "desk/PenList.h"

enum class PenState {
  kNormal,
  kDownload,      // in firmware-download mode, and telling its id: an install goes on from there
  kDownloadNoId,  // in firmware-download mode without an id: no install can be begun on it
  kUnreadable,
  kGone,
};

struct PenLeft {
  PenState state = PenState::kGone;
  std::string firmware;  // in normal operation
  size_t applications = 0;
};

// Looks for the pen under its id or, in download mode, under the handle that it had last.
PenLeft LookAgain(const Pen& pen, int32_t lastHandle);
// "normal", "download", "unreadable" or "gone"; for programs.
std::string_view NameOf(PenState state);
// How the pen was left, and what to do about it, in words.
std::string WordsOf(const PenLeft& left);
std::string_view RemedyOf(const PenLeft& left);

#endif
