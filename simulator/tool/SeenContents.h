// What the calls about one pen tell of it: of the pen itself, of what it held, and of the files that it was given.
// `calls` are all of them in order, by their places in `all`.
#ifndef QUARVEL_SIMULATOR_TOOL_SEENCONTENTS_H
#define QUARVEL_SIMULATOR_TOOL_SEENCONTENTS_H

#include <map>
#include <string>
#include <vector>

#include "simulator/tool/SeenPens.h"

namespace simtool {

using CallList = std::vector<trace::Recorded>;
using Places = std::vector<size_t>;

// An application that was sent to the pen: its GUID is the one whose attributes are written next, its version the one
// that the pen tells afterwards.
SeenFile AppFile(const CallList& all, const Places& calls, size_t call);
SeenFile FirmwareFile(const CallList& all, const Places& calls, size_t call);

// Adds name, type and firmware, and what the trace shows of the pen's habits.
void DescribePen(const CallList& all, const Places& calls, Json& pen);
// Adds the penlets that the pen held before anything was sent to it.
void DescribeContents(const CallList& all, const Places& calls, const std::map<size_t, SeenFile>& files, Json& pen);

std::string ToHex(uint64_t number);

// "8.9.15.b2" of what a pen tells of its firmware.
std::string FirmwareText(const Json& answers);

}  // namespace simtool

#endif
