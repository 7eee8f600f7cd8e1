// The progress calls of transfers. The pen library is given a function and a context of ours, which stand for the
// host's for as long as the process lives: a library may call late, from any thread, or for another pen, and the host's
// function is then called as it would have been. Of a transfer's calls a bounded choice is recorded; all are counted.
#ifndef QUARVEL_TRACE_TICKS_H
#define QUARVEL_TRACE_TICKS_H

#include <stdint.h>

#include "platform/Tessvik.h"
#include "trace/Line.h"

namespace trace {

struct Slot;

// From construction to destruction the progress calls with this function and context belong to this call.
class Ticks {
 public:
  Ticks(uint32_t call, pcProgressFunction function, void* context);
  ~Ticks();
  Ticks(const Ticks&) = delete;
  Ticks& operator=(const Ticks&) = delete;

  // What the pen library is to be given: the host's own where no progress is wanted, or too many places are in use.
  pcProgressFunction Function() const;
  void* Context() const;

  // Adds "ticks", and the last one's values.
  void Describe(Line& line);

 private:
  pcProgressFunction m_function;
  void* m_context;
  Slot* m_slot;
};

}  // namespace trace

#endif
