// What happens around every pen function: it is counted, a hook or a fault may fail it, and it is traced.
#ifndef QUARVEL_SIMULATOR_CALLS_H
#define QUARVEL_SIMULATOR_CALLS_H

#include <functional>
#include <string>

#include "simulator/Bench.h"
#include "simulator/PenBench.h"
#include "trace/Line.h"

namespace sim {

// One call of a pen function, for what is kept of it and for its trace.
struct CallText {
  const char* function;
  int32_t penHandle;                            // 0 where the function takes none
  std::function<void(trace::Line&)> arguments;  // asked before and after the call
  // Asked only when a trace is written, after a call that did not fail.
  std::function<void(trace::Line&, int32_t result)> answers{};
  uint64_t penId = 0;   // where the function takes an id
  int32_t channel = 0;  // where the function takes nothing else
};

// Runs a pen function's body, which throws Problem to fail. Returns 0, what the body answers, or the error.
int32_t RunCall(const CallText& call, const std::function<int32_t()>& body);

void SetHook(pbHook hook, void* context);
int32_t CallCount();
std::string Call(int32_t number);
void ForgetCalls();

}  // namespace sim

#endif
