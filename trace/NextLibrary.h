// The pen library that stands behind this one. It is looked for at every call, since a host may unload it and load it
// again elsewhere; any thread.
#ifndef QUARVEL_TRACE_NEXTLIBRARY_H
#define QUARVEL_TRACE_NEXTLIBRARY_H

#include "trace/Line.h"

namespace trace {

// Its function of this name, null when it has none.
void* FindNext(const char* function);

// Adds "library", its file, and "simulator" when its pens are simulated.
void DescribeNextLibrary(Line& line);

}  // namespace trace

#endif
