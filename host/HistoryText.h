// The history as people read it: a table of runs that fits the window, and all about one run.
#ifndef QUARVEL_HOST_HISTORYTEXT_H
#define QUARVEL_HOST_HISTORYTEXT_H

#include <string>
#include <vector>

#include "desk/RunRecord.h"
#include "host/Console.h"

// What became of a run, in words: "done", "nothing to do", "failed: the pen ... (-6)", "ended without a result".
std::string OutcomeOf(const RunRecord& run);
// The same in at most 13 columns.
std::string ShortOutcomeOf(const RunRecord& run);
// "run 12", or "the run of 2026-11-21 08:30" where the history does not number it.
std::string NameOfRun(const RunRecord& run);

void ShowRuns(const Console& console, const std::vector<RunRecord>& runs, size_t columns);
void ShowRun(const Console& console, const RunRecord& run);

#endif
