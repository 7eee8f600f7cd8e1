#include "simulator/Calls.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <mutex>

#include "simulator/Problem.h"
#include "simulator/SimClock.h"

namespace sim {
namespace {

constexpr std::array kFunctions = {"pcGetPenHandles",      "pcGetPenId",       "pcGetPenType",    "pcGetPenState",
                                   "pcGetPenInfo",         "pcGetVersionInfo", "pcEnumeratePen",  "pcRegisterVolatile",
                                   "pcUnRegisterVolatile", "pcStartObex",      "pcStopObex",      "pcGetPenletInfo",
                                   "pcGetPenletCount",     "pcGetPenletItem",  "pcInstallPenlet", "pcSetPenletAttrib",
                                   "pcUninstallPenlet",    "pcDfuDetach",      "pcDfuDownload"};

// Calls kept for pbCall: a host that runs for days must not grow.
constexpr size_t kCallsKept = 10000;

std::mutex g_lock;
pbHook g_hook = nullptr;
void* g_hookContext = nullptr;
int32_t g_count = 0;
std::map<std::string, int32_t> g_counts;
std::deque<std::string> g_calls;

struct Counted {
  int32_t number;      // of all calls
  int32_t ofFunction;  // of this function
  pbHook hook;
  void* hookContext;
};

Counted Count(const char* function) {
  const std::lock_guard lock(g_lock);
  return {++g_count, ++g_counts[function], g_hook, g_hookContext};
}

void Keep(const CallText& call, int32_t result) {
  const std::lock_guard lock(g_lock);
  g_calls.push_back(fmt::format("{}({})={}", call.function, call.penHandle, result));
  if (g_calls.size() > kCallsKept) g_calls.pop_front();
}

int32_t FindFault(const BenchState& state, const char* function, int32_t ofFunction) {
  for (const Fault& fault : state.faults) {
    if (fault.function == function && (fault.call == 0 || fault.call == ofFunction)) return fault.error;
  }
  return 0;
}

// One write per line, so that the lines of several processes stay whole.
void WriteTrace(const std::string& file, const CallText& call, int32_t result, int64_t began) {
  Json line = {{"time", began}, {"process", getpid()}, {"function", call.function}, {"pen", call.penHandle}};
  line["arguments"] = call.arguments ? call.arguments() : Json::object();
  line["result"] = result;
  line["took"] = Now() - began;
  const std::string text = line.dump() + "\n";
  const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (descriptor < 0) return;
  [[maybe_unused]] const ssize_t written = write(descriptor, text.data(), text.size());
  close(descriptor);
}

int32_t Perform(const Counted& counted, const CallText& call, const BenchState& state,
                const std::function<int32_t()>& body) {
  if (counted.hook) {
    const int32_t error = counted.hook(counted.hookContext, counted.number, call.function, call.penHandle);
    if (error != 0) return error;
  }
  const int32_t fault = FindFault(state, call.function, counted.ofFunction);
  return fault != 0 ? fault : body();
}

}  // namespace

int32_t RunCall(const CallText& call, const std::function<int32_t()>& body) {
  const Counted counted = Count(call.function);
  int32_t result = 0;
  std::string trace;
  const int64_t began = Now();
  try {
    const BenchState state = PeekState();
    trace = state.trace;
    result = Perform(counted, call, state, body);
  } catch (const Problem& problem) {
    result = problem.error();
  } catch (const std::exception&) {
    result = pbErrFolder;
  }
  Keep(call, result);
  if (!trace.empty()) WriteTrace(trace, call, result, began);
  return result;
}

bool IsPenFunction(const std::string& name) {
  return std::find(kFunctions.begin(), kFunctions.end(), name) != kFunctions.end();
}

void SetHook(pbHook hook, void* context) {
  const std::lock_guard lock(g_lock);
  g_hook = hook;
  g_hookContext = context;
}

int32_t CallCount() {
  const std::lock_guard lock(g_lock);
  return g_count;
}

std::string Call(int32_t number) {
  const std::lock_guard lock(g_lock);
  const int64_t index = int64_t{number} - 1 - (int64_t{g_count} - static_cast<int64_t>(g_calls.size()));
  if (index < 0 || index >= static_cast<int64_t>(g_calls.size())) return "";
  return g_calls[static_cast<size_t>(index)];
}

void ForgetCalls() {
  const std::lock_guard lock(g_lock);
  g_hook = nullptr;
  g_count = 0;
  g_counts.clear();
  g_calls.clear();
}

}  // namespace sim
