// The pens that an install on this machine left half-way, from the traces of the runs that are kept here.
#ifndef QUARVEL_DESK_LOSTPENS_H
#define QUARVEL_DESK_LOSTPENS_H

#include <string>
#include <vector>

#include "desk/Json.h"
#include "desk/LoadedBundle.h"

// What an install was to bring, as it is kept with the run.
struct InstallOrder {
  std::string bundle;  // its whole path
  InstallChoice choice;
};
Json ToJson(const InstallOrder& order);
InstallOrder InstallOrderFrom(const Json& kept);

struct LostPen {
  std::string id;    // as PenIdText
  std::string when;  // the time of the run
  std::string how;   // in words: how the run ended
  InstallOrder order;
};

// Each pen once: those whose last install here was ended by force, or stopped or failed with the pen left half-way.
// The newest first.
std::vector<LostPen> LostPens();

#endif
