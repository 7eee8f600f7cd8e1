#include "simulator/Calls.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <unistd.h>

#include <deque>
#include <map>
#include <mutex>

#include "simulator/Connections.h"
#include "simulator/Problem.h"
#include "simulator/SimClock.h"

namespace sim {
namespace {

// Calls kept for pbCall: a host that runs for days must not grow.
constexpr size_t kCallsKept = 10000;

std::mutex g_lock;
pbHook g_hook = nullptr;
void* g_hookContext = nullptr;
int32_t g_count = 0;
std::map<std::pair<std::string, uint64_t>, int32_t> g_counts;  // by function and pen, of all pens for 0
std::deque<std::string> g_calls;
std::string g_traced;  // the file of the trace that was written last

struct Counted {
  int32_t number;      // of all calls
  int32_t ofFunction;  // of this function
  pbHook hook;
  void* hookContext;
};

Counted Count(const char* function) {
  const std::lock_guard lock(g_lock);
  return {++g_count, ++g_counts[{function, 0}], g_hook, g_hookContext};
}

std::string TextOf(trace::Line& line) {
  line.Finish();
  return {line.data(), line.size()};
}

std::string Described(const CallText& call, int32_t result) {
  trace::Line line;
  if (call.arguments) call.arguments(line);
  const std::string text = TextOf(line);
  const std::string_view arguments = std::string_view(text).substr(0, text.find('\n'));
  return fmt::format("{}({}{}{})={}", call.function, call.penHandle, arguments == "{}" ? "" : ", ",
                     arguments == "{}" ? "" : arguments, result);
}

void Keep(const CallText& call, int32_t result) {
  std::string text = Described(call, result);
  const std::lock_guard lock(g_lock);
  g_calls.push_back(std::move(text));
  if (g_calls.size() > kCallsKept) g_calls.pop_front();
}

int32_t CountFor(const Pen& pen, const char* function) {
  const std::lock_guard lock(g_lock);
  return ++g_counts[{function, pen.id}];
}

int32_t FindFault(const std::vector<Fault>& faults, const char* function, int32_t ofFunction) {
  for (const Fault& fault : faults) {
    if (fault.function == function && (fault.call == 0 || fault.call == ofFunction)) return fault.error;
  }
  return 0;
}

// A call that names no pen, as pcGetPenHandles, is about every pen.
bool IsAbout(const CallText& call, const Pen& pen) {
  if (call.penId != 0) return call.penId == pen.id || call.penId == pen.reportedId;
  if (call.channel != 0) return Connections::Instance().PenOfChannel(call.channel) == pen.id;
  return call.penHandle == 0 || (pen.connected && call.penHandle == pen.handle);
}

// Before the call does anything.
void KillHostIfDue(const Pen& pen) {
  if (pen.settings.killsHostAt > 0 && CountFor(pen, "any") == pen.settings.killsHostAt) raise(SIGKILL);
}

int32_t FindPenFault(const CallText& call) {
  for (const PenPointer& pen : PeekPens()) {
    if (!IsAbout(call, *pen)) continue;
    KillHostIfDue(*pen);
    if (pen->faults.empty()) continue;
    const int32_t error = FindFault(pen->faults, call.function, CountFor(*pen, call.function));
    if (error != 0) return error;
  }
  return 0;
}

// Whether this process has begun to write into the file just now.
bool IsFirstIn(const std::string& file) {
  const std::lock_guard lock(g_lock);
  if (g_traced == file) return false;
  g_traced = file;
  return true;
}

std::string IntroductionText() {
  trace::Line line;
  line.Number("trace", 1).Number("process", getpid()).Number("time", Now() * 1000).Flag("simulator", true);
  return TextOf(line);
}

std::string BeginText(const CallText& call, int32_t number, int64_t began) {
  trace::Line line;
  line.Number("begin", number).Number("process", getpid()).Number("thread", gettid()).Number("time", began * 1000);
  line.Text("function", call.function, 32).Number("pen", call.penHandle).OpenObject("in");
  if (call.arguments) call.arguments(line);
  return TextOf(line);
}

std::string EndText(const CallText& call, int32_t number, int32_t result) {
  trace::Line line;
  line.Number("end", number).Number("process", getpid()).Number("time", Now() * 1000).Number("result", result);
  line.OpenObject("out");
  const bool isCount = call.penHandle == 0 && call.penId == 0 && call.channel == 0;
  if (call.answers && (result == 0 || isCount)) call.answers(line, result);
  return TextOf(line);
}

// One write per call, so that the lines of several processes stay whole.
void WriteTrace(const std::string& file, const CallText& call, int32_t number, int32_t result, int64_t began) {
  const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (descriptor < 0) return;
  std::string text = IsFirstIn(file) ? IntroductionText() : "";
  text += BeginText(call, number, began) + EndText(call, number, result);
  [[maybe_unused]] const ssize_t written = write(descriptor, text.data(), text.size());
  close(descriptor);
}

int32_t Perform(const Counted& counted, const CallText& call, const BenchState& state,
                const std::function<int32_t()>& body) {
  int32_t lost = 0;
  if (counted.hook) {
    const int32_t error = counted.hook(counted.hookContext, counted.number, call.function, call.penHandle);
    if (error > 0) return error;
    lost = -error;
  }
  const int32_t fault = FindFault(state.faults, call.function, counted.ofFunction);
  if (fault != 0) return fault;
  const int32_t ofPen = FindPenFault(call);
  if (ofPen != 0) return ofPen;
  const int32_t result = body();
  return lost != 0 ? lost : result;
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
  if (!trace.empty()) WriteTrace(trace, call, counted.number, result, began);
  return result;
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
  g_traced.clear();
}

}  // namespace sim
