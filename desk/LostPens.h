// The pens that an install on this machine left half-way, from the runs that are kept here.
#ifndef QUARVEL_DESK_LOSTPENS_H
#define QUARVEL_DESK_LOSTPENS_H

#include <string>
#include <vector>

#include "desk/RunRecord.h"

struct LostPen {
  std::string id;      // as PenIdText
  std::string folder;  // of the run
  std::string when;    // its time
  std::string how;     // in words: how the run ended
  InstallOrder order;
};

// Of runs, the newest first, each pen once: those whose last install was ended by force, or stopped or failed with the
// pen left half-way. A pen that a run works on is not lost. The newest first.
std::vector<LostPen> LostPens(const std::vector<RunRecord>& runs);

#endif
