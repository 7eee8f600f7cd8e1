// The answers of the pen functions in the form in which a trace has them, and where two differ.
#ifndef QUARVEL_SIMULATOR_TOOL_ANSWERS_H
#define QUARVEL_SIMULATOR_TOOL_ANSWERS_H

#include <string>

#include "platform/Tessvik.h"
#include "simulator/tool/Commands.h"
#include "trace/Recording.h"

namespace simtool {

// A count of pens never fails; 0 and 1 are success where a pen is enumerated.
bool HasFailed(const std::string& function, int64_t result);
bool HasFailed(const trace::Recorded& call);

Json VersionAnswers(const PenVersionInfo& info);
Json ItemAnswers(const PenletInfo& item);

// Where what a call gives today is not what it gave, in words; empty where it is. Between two libraries the numbers of
// errors, and what else is a library's own, may differ.
std::string DifferenceOf(const trace::Recorded& call, int64_t result, const Json& out, bool isSameLibrary);

}  // namespace simtool

#endif
