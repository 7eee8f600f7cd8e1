// What the command line asks for, after parsing. Each command reads the fields that its options fill.
#ifndef QUARVEL_HOST_OPTIONS_H
#define QUARVEL_HOST_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

#include "desk/LoadedBundle.h"

enum class OnError { kStop, kSkip, kAsk };

struct Options {
  std::string bundle;
  InstallChoice choice;  // its group is also the one to remove
  std::vector<uint64_t> pens;
  bool all = false;
  bool failIfCurrent = false;
  bool plan = false;
  bool yes = false;
  bool fresh = false;
  uint32_t wait = 300;  // seconds for a pen to come back
  OnError onError = OnError::kStop;
  std::string log;     // empty: in the run's own folder
  std::string trace;   // likewise
  std::string output;  // of a report
  std::string run;     // of the history: a number, or "last"
  bool show = false;   // that run alone
  bool lines = false;  // with its lines of the log
  bool failed = false;
  std::string since;
  size_t limit = 20;
  bool full = false;
  bool replace = false;
  bool idsOnly = false;
  bool json = false;
  bool quiet = false;
};

#endif
