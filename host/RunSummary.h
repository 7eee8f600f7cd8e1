// What is told when a run is over: the table of packages, the failure and its remedy, how the pen was left, and the
// exit status of all runs.
#ifndef QUARVEL_HOST_RUNSUMMARY_H
#define QUARVEL_HOST_RUNSUMMARY_H

#include <string>
#include <vector>

#include "desk/RunObserver.h"
#include "host/Console.h"

// A failure's meaning, what the log says of it and the remedy.
void Explain(const Console& console, InsResCode code, const std::string& detail, const std::string& logFile);
// Whether a stop or a failure may have left the pen half-way.
bool MayBeHalfWay(const PenRun& run, const RunEnd& end);
// Reads the pen once more and says in what state it is.
std::string StateLeft(const PenRun& run);
// `left` is the pen's state, empty when it needs no words.
void ShowEnd(const Console& console, const PenRun& run, const RunEnd& end, const std::string& left,
             const std::string& logFile);
// The first status that is not good, in the order of the pens; kCurrent when all are that.
ExitStatus Combined(const std::vector<RunEnd>& ends, bool failIfCurrent);

#endif
