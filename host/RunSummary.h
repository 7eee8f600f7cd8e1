// What is told when a run is over: the table of packages, how the pen was left, the failure and its remedy; and the
// exit status of all runs.
#ifndef QUARVEL_HOST_RUNSUMMARY_H
#define QUARVEL_HOST_RUNSUMMARY_H

#include <string>
#include <string_view>
#include <vector>

#include "desk/RunObserver.h"
#include "host/Console.h"

// Each package with what became of it and why, one a line.
void ShowPackages(const Console& console, const std::vector<PackageRow>& rows);
// A failure's meaning, what the log says of it and what to do.
void Explain(const Console& console, InsResCode code, const std::string& detail, std::string_view remedy,
             const std::string& logFile);
void ShowEnd(const Console& console, const PenRun& run, const RunEnd& end, const std::string& logFile);
// The first status that is not good, in the order of the pens; kCurrent when all are that.
ExitStatus Combined(const std::vector<RunEnd>& ends, bool failIfCurrent);

#endif
