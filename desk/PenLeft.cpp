#include "desk/PenLeft.h"

#include <fmt/format.h>

#include <algorithm>

#include "desk/Failure.h"
#include "desk/Text.h"
#include "platform/Tessvik.h"

namespace {

std::vector<Pen> PensThatCanBeSeen() {
  try {
    return ConnectedPens();
  } catch (const Failure&) {
    return {};
  }
}

}  // namespace

PenLeft LookAgain(const Pen& pen, int32_t lastHandle) {
  std::vector<Pen> pens = PensThatCanBeSeen();
  auto same = [&](const Pen& each) { return each.id == pen.id || (!each.id && each.handle == lastHandle); };
  auto found = std::find_if(pens.begin(), pens.end(), same);
  if (found == pens.end()) return {};
  if (found->state == pcPenStateFirmwareDownload) {
    return {found->id ? PenState::kDownload : PenState::kDownloadNoId, "", 0};
  }
  ReadContents(*found);
  if (!found->contents) return {PenState::kUnreadable, "", 0};
  return {PenState::kNormal, found->contents->firmware, found->contents->penlets.size()};
}

std::string_view NameOf(PenState state) {
  switch (state) {
    case PenState::kNormal:
      return "normal";
    case PenState::kDownload:
    case PenState::kDownloadNoId:
      return "download";
    case PenState::kUnreadable:
      return "unreadable";
    default:
      return "gone";
  }
}

std::string WordsOf(const PenLeft& left) {
  switch (left.state) {
    case PenState::kNormal:
      return fmt::format("in normal operation, with firmware {} and {} applications", Printable(left.firmware),
                         left.applications);
    case PenState::kDownload:
      return "in download mode, without a firmware that works";
    case PenState::kDownloadNoId:
      return "in download mode, without a firmware that works, and tells no id";
    case PenState::kUnreadable:
      return "connected, but it cannot be read";
    default:
      return "not connected";
  }
}

std::string_view RemedyOf(const PenLeft& left) {
  switch (left.state) {
    case PenState::kNormal:
      return "Start the install again; it goes on with what the pen still lacks.";
    case PenState::kDownload:
      return "Leave the pen connected and start the install again, or run `quarvel recover`.";
    case PenState::kDownloadNoId:
      return "Disconnect the pen and connect it again, so that it tells its id, then start the install again; `quarvel "
             "recover` leads through it.";
    default:
      return "Connect the pen again, then start the install again; `quarvel recover` leads through it.";
  }
}
