// What is told when the runs on all pens are done: the table of packages, how each pen was left, and the exit status.
#ifndef QUARVEL_HOST_RUNSUMMARY_H
#define QUARVEL_HOST_RUNSUMMARY_H

#include <memory>
#include <string>
#include <vector>

#include "host/Session.h"

// The end of one pen's run. `detail` is what the log says of a failure.
struct RunEnd {
  InsResCode code;
  ExitStatus status;
  std::string detail;
};

// What the run's call of the exported `function` wrote into the log; nothing, and no wait for the log, when the run's
// reports tell everything.
std::vector<LogLine> LinesOf(const Session& session, PenRun& run, std::string_view function);
// A run with code 0 in which a package failed and was passed over ends with that failure's status.
RunEnd EndOf(PenRun& run, const std::string& detail);
void ShowPackages(const Console& console, const PenRun& run, const std::vector<PackageRow>& rows);
// Reads the pen once more and says in what state it is.
void ShowStateLeft(const Console& console, const PenRun& run);
// The first status that is not good, in the order of the pens; kCurrent when all are that.
ExitStatus Combined(const std::vector<RunEnd>& ends, bool failIfCurrent);

#endif
