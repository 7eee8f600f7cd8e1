/* Control of the simulated pens, for tests and tools: what a person does with pens on a desk, and what goes wrong.

   The pens live in files (one JSON document each) in the folder that TESSVIK_SIM_DIR names, else in
   $XDG_STATE_HOME/tessvik-sim/pens. All processes that use one folder see the same pens.

   1. Functions that can fail return 0 or one of PB_ERRORS; pbErrorText explains it, pbLastProblem the case at hand.
   2. Texts are NUL-terminated. Functions that give a text write at most `size` bytes with the NUL into `out` and return
      the length that the whole text has.
   3. Any function may be called from any thread. */
#ifndef QUARVEL_SIMULATOR_PENBENCH_H
#define QUARVEL_SIMULATOR_PENBENCH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* X(enumerator, number, text): the error numbers of the simulated pen library, one line each. */
#define PB_ERRORS(X)                                                               \
  X(pbErrHandle, 101, "no pen is on the bus under this handle")                    \
  X(pbErrNoId, 102, "a pen in download mode cannot tell its id")                   \
  X(pbErrDownloadMode, 103, "the pen is in download mode")                         \
  X(pbErrNotDownloadMode, 104, "the pen is not in download mode")                  \
  X(pbErrChannel, 105, "the channel is closed")                                    \
  X(pbErrOtherChannel, 106, "the channel belongs to another pen")                  \
  X(pbErrChannelBusy, 107, "the pen has an open channel already")                  \
  X(pbErrNotRead, 108, "the pen has not been read since it came on the bus")       \
  X(pbErrIndex, 109, "there is no item with this index")                           \
  X(pbErrUnreadable, 110, "the item cannot be read")                               \
  X(pbErrNoPenlet, 111, "no penlet with this GUID is on the pen")                  \
  X(pbErrGuid, 112, "a GUID has 1 to 15 characters")                               \
  X(pbErrText, 113, "a text is too long for its field")                            \
  X(pbErrAttribute, 114, "an attribute is not one that a pen keeps")               \
  X(pbErrRefused, 115, "the pen refuses attributes")                               \
  X(pbErrFile, 116, "the file cannot be read")                                     \
  X(pbErrNotApp, 117, "the file is not an application for this pen")               \
  X(pbErrNotFirmware, 118, "the file is not a firmware image for this pen")        \
  X(pbErrSpace, 119, "the pen has no room for it")                                 \
  X(pbErrStopped, 120, "the transfer was stopped")                                 \
  X(pbErrUnplugged, 121, "the pen left the bus")                                   \
  X(pbErrMark, 122, "the pen is marked under this name already")                   \
  X(pbErrNoMark, 123, "the pen is not marked under this name")                     \
  X(pbErrArgument, 124, "an argument is missing or out of range")                  \
  X(pbErrFolder, 125, "the folder of the pens cannot be used")                     \
  X(pbErrPenFile, 126, "a pen's file cannot be understood")                        \
  X(pbErrNoPen, 127, "there is no pen with this id")                               \
  X(pbErrPenExists, 128, "there is a pen with this id already")                    \
  X(pbErrSetting, 129, "there is no such setting, or it does not take this value") \
  X(pbErrFunction, 130, "there is no such pen function")

#define PB_ENUMERATOR(name, number, text) name = (number),
enum pbErrors { PB_ERRORS(PB_ENUMERATOR) pbErrorsEnd };
#undef PB_ENUMERATOR

/* The text of an error number; "" for 0, "unknown error" for a number that is none of PB_ERRORS. */
const char* pbErrorText(int32_t error);
/* What the last failing control function of this thread stumbled over, in one sentence. */
int32_t pbLastProblem(char* out, int32_t size);

/* Uses the pens in this folder from now on; null for what the environment says. */
int32_t pbSetFolder(const char* folder);
/* Takes the time from `now` (milliseconds since the epoch) and sleeps through `sleep` (milliseconds); null functions
   stand for the system's. Pens that come and go, transfer speeds and traces go by it. */
void pbSetClock(int64_t (*now)(void* context), void (*sleep)(void* context, int64_t milliseconds), void* context);
/* Forgets everything that this process holds: channels, marks, lists read, counts of calls, faults set here, the hook
   and the clock. The pens stay. */
void pbReset(void);

/* Pens. `json` is a pen as its file has it; everything but "id" may be left out. A pen is added plugged in. */
int32_t pbAddPen(const char* json);
int32_t pbRemovePen(uint64_t penId);
int32_t pbShowPen(uint64_t penId, char* out, int32_t size); /* the file's JSON; "" without such a pen */
int32_t pbListPens(char* out, int32_t size);                /* a JSON array of all of them, by id */
/* The pen comes on the bus under a new handle and starts anew: in normal mode, unless it starts in download mode. */
int32_t pbPlug(uint64_t penId);
int32_t pbUnplug(uint64_t penId);
int32_t pbSet(uint64_t penId, const char* setting, const char* value);
int32_t pbSettings(char* out, int32_t size); /* a JSON array: name, default, meaning of every setting */

/* Faults. The `call`-th call of the pen function named `function` (counted in each process from 1; 0 for every call)
   fails with `error` without doing anything. Kept in the folder, for every process, until cleared. */
int32_t pbFault(const char* function, int32_t call, int32_t error);
int32_t pbClearFaults(void);
int32_t pbListFaults(char* out, int32_t size); /* a JSON array */
/* The same for calls that are about one pen, counted apart and kept in the pen's file. */
int32_t pbPenFault(uint64_t penId, const char* function, int32_t call, int32_t error);
int32_t pbClearPenFaults(uint64_t penId);

/* Traces. Every call of every process on the folder becomes one JSON line in `file`; null ends it. */
int32_t pbTrace(const char* file);

/* What this process did and holds. */
typedef int32_t (*pbHook)(void* context, int32_t number, const char* function, int32_t penHandle);
/* `hook` is called before each pen function with the call's number (from 1 since pbReset) and its pen's handle (0 where
   it names none); a positive answer fails the call with that number, a negative one lets it do its work and then fails
   it with the number without its sign. It may call control functions. Null for none. */
void pbSetHook(pbHook hook, void* context);
int32_t pbCallCount(void);
int32_t pbCall(int32_t number, char* out, int32_t size); /* "pcStopObex(0, {"channel":1})=0": handle, arguments */
int32_t pbOpenChannels(void);
int32_t pbMarks(void);
int32_t pbThreads(void); /* that the library made and that still run */

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
