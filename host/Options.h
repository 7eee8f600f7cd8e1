// What the command line asks for, after parsing. Each command reads the fields that its options fill.
#ifndef QUARVEL_HOST_OPTIONS_H
#define QUARVEL_HOST_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

enum class OnError { kStop, kSkip, kAsk };

struct Options {
  std::string bundle;
  std::string group;
  std::vector<uint64_t> pens;
  bool all = false;
  std::vector<std::string> certificates;
  bool firmware = false;
  bool apps = false;
  bool force = false;
  bool failIfCurrent = false;
  OnError onError = OnError::kStop;
  std::string log;     // empty: in the run's own folder
  std::string output;  // of a report
  bool full = false;
  bool idsOnly = false;
  bool json = false;
  bool quiet = false;
};

#endif
