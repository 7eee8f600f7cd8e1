// The moving of bytes to a pen: at its speed, in its ticks, with progress that may stop it.
#ifndef QUARVEL_SIMULATOR_TRANSFER_H
#define QUARVEL_SIMULATOR_TRANSFER_H

#include "platform/Tessvik.h"
#include "simulator/Pen.h"

namespace sim {

struct Progress {
  pcProgressFunction function;  // may be null
  void* context;
};

// Returns when all bytes are there; throws pbErrStopped when the progress function asked to stop and pbErrUnplugged
// when the pen has left the bus. Takes no lock while it lasts.
void Transfer(const Pen& pen, uint64_t size, const Progress& progress);

// How many threads of the library's own there are.
int32_t TransferThreads();

// Makes the late progress call that a pen with stray-progress still owes.
void MakeLateProgressCall();

}  // namespace sim

#endif
