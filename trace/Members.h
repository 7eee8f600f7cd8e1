// What the pen functions take and answer, as members of a line.
#ifndef QUARVEL_TRACE_MEMBERS_H
#define QUARVEL_TRACE_MEMBERS_H

#include "platform/Tessvik.h"
#include "trace/Line.h"

namespace trace {

constexpr size_t kLongestText = 1024;  // of an argument

// Pointers are recorded where they are null, and only then.
void TellNull(Line& line, const char* name, const void* pointer);
// "file", and "bytes" when it is there.
void TellFile(Line& line, const char* file);
void TellTransfer(Line& line, int32_t channel, const void* buffer, int32_t bufferSize, pcProgressFunction progress);
void TellAttributes(Line& line, const PenletAttribute* attributes, int32_t count);

// Handles that are there: a count may be negative, or larger than what there was room for.
void TellHandles(Line& line, const int32_t* handles, int32_t capacity, int32_t count);
void TellVersion(Line& line, const PenVersionInfo& info);
void TellItem(Line& line, const PenletInfo& item);

}  // namespace trace

#endif
