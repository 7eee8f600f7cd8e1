// The trace of a run: what was asked of the pen library and answered, recorded on its way through. Every program of a
// desk records; see docs/trace.md.
#ifndef QUARVEL_DESK_RUNTRACE_H
#define QUARVEL_DESK_RUNTRACE_H

#include <string>

// Records from now on into the chosen file; without one where the environment says, else into the usual one. Returns
// the file, "" when the usual one cannot be written, which keeps no run from going on. Throws a Failure for a chosen
// one.
std::string RecordRun(const std::string& chosen, const std::string& usual);

// The whole text of a trace, with its older half; "" where there is none.
std::string ReadRunTrace(const std::string& file);

#endif
