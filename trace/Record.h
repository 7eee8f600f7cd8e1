/* Where this process records its calls of the pen library. A host that links libtessvik-trace chooses the file itself;
   in any other one the environment does: TESSVIK_TRACE names the file, TESSVIK_TRACE_BYTES its bound. Any thread. */
#ifndef QUARVEL_TRACE_RECORD_H
#define QUARVEL_TRACE_RECORD_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Records every call from now on into `file`, which is made, or added to if it is a trace; null ends the recording.
   Returns 0, or the system's error number when the file cannot be written; nothing is recorded then. */
int32_t ttRecord(const char* file);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
