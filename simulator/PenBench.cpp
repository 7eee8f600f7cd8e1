// The control functions.
#include "simulator/PenBench.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "simulator/Bench.h"
#include "simulator/Calls.h"
#include "simulator/Connections.h"
#include "simulator/Problem.h"
#include "simulator/SimClock.h"
#include "simulator/Transfer.h"

namespace {

using namespace sim;

thread_local std::string t_problem;

template <typename Body>
int32_t Control(Body body) {
  try {
    body();
    return 0;
  } catch (const Problem& problem) {
    t_problem = problem.what();
    return problem.error();
  } catch (const std::exception& error) {
    t_problem = error.what();
    return pbErrFolder;
  }
}

int32_t Give(const std::string& text, char* out, int32_t size) {
  if (out && size > 0) {
    const size_t length = std::min(text.size(), static_cast<size_t>(size) - 1);
    std::memcpy(out, text.data(), length);
    out[length] = '\0';
  }
  return static_cast<int32_t>(text.size());
}

// The text that a body makes, "" when it fails.
template <typename Body>
int32_t GiveFrom(char* out, int32_t size, Body body) {
  std::string text;
  Control([&] { text = body(); });
  return Give(text, out, size);
}

// Changes one pen.
template <typename Change>
int32_t ChangePen(uint64_t penId, Change change) {
  return Control([&] {
    Bench bench;
    Pen* pen = bench.Find(penId);
    if (!pen) throw Problem(pbErrNoPen, fmt::format("there is no pen {}", IdText(penId)));
    change(bench, *pen);
    bench.Save(*pen);
  });
}

// The pen's own members, beside its settings.
void SetMember(Bench& bench, Pen& pen, const std::string& name, const std::string& value) {
  if (name == "name") {
    pen.name = value;
  } else if (name == "firmware") {
    pen.firmware = value;
  } else if (name == "type") {
    pen.type = Json::parse(value).get<int32_t>();
  } else if (name == "mode") {
    if (value != "normal" && value != "download") {
      throw Problem(pbErrSetting, fmt::format("the setting mode takes normal or download, not \"{}\"", value));
    }
    pen.mode = value;
    if (pen.connected) bench.Connect(pen);  // as a pen does that changes its mode
  } else {
    SetFromText(pen.settings, name, value);
  }
}

}  // namespace

extern "C" {

const char* pbErrorText(int32_t error) {
#define PB_TEXT(name, number, text) \
  case number:                      \
    return text;
  switch (error) {
    case 0:
      return "";
      PB_ERRORS(PB_TEXT)
    default:
      return "unknown error";
  }
#undef PB_TEXT
}

int32_t pbLastProblem(char* out, int32_t size) {
  return Give(t_problem, out, size);
}

int32_t pbSetFolder(const char* folder) {
  return Control([=] { SetPenFolder(folder ? folder : ""); });
}

void pbSetClock(int64_t (*now)(void*), void (*sleep)(void*, int64_t), void* context) {
  SetClock(now, sleep, context);
}

void pbReset(void) {
  ForgetCalls();
  Connections::Instance().Forget();
  SetClock(nullptr, nullptr, nullptr);
}

int32_t pbAddPen(const char* json) {
  return Control([=] {
    const Json parsed = Json::parse(json ? json : "", nullptr, false);
    if (parsed.is_discarded()) throw Problem(pbErrPenFile, "a pen is a JSON object");
    Bench().Add(PenFromJson(parsed));
  });
}

int32_t pbRemovePen(uint64_t penId) {
  return Control([=] { Bench().Remove(penId); });
}

int32_t pbShowPen(uint64_t penId, char* out, int32_t size) {
  return GiveFrom(out, size, [=] {
    Bench bench;
    const Pen* pen = bench.Find(penId);
    return pen ? PenToJson(*pen).dump(2) : std::string();
  });
}

int32_t pbListPens(char* out, int32_t size) {
  return GiveFrom(out, size, [] {
    Json all = Json::array();
    Bench bench;
    for (const Pen& pen : bench.pens()) all.push_back(PenToJson(pen));
    return all.dump(2);
  });
}

int32_t pbPlug(uint64_t penId) {
  return ChangePen(penId, [](Bench& bench, Pen& pen) { bench.PlugIn(pen); });
}

int32_t pbUnplug(uint64_t penId) {
  return ChangePen(penId, [](Bench&, Pen& pen) {
    pen.schedule.clear();
    pen.connected = false;
    pen.handle = 0;
  });
}

int32_t pbSet(uint64_t penId, const char* setting, const char* value) {
  return ChangePen(penId, [=](Bench& bench, Pen& pen) {
    if (!setting || !value) throw Problem(pbErrArgument);
    SetMember(bench, pen, setting, value);
  });
}

int32_t pbSettings(char* out, int32_t size) {
  return GiveFrom(out, size, [] { return DescribeSettings().dump(2); });
}

int32_t pbFault(const char* function, int32_t call, int32_t error) {
  return Control([=] {
    const Fault fault{function ? function : "", call, error};
    CheckFault(fault);
    Bench bench;
    bench.state().faults.push_back(fault);
    bench.SaveState();
  });
}

int32_t pbClearFaults(void) {
  return Control([] {
    Bench bench;
    bench.state().faults.clear();
    bench.SaveState();
  });
}

int32_t pbListFaults(char* out, int32_t size) {
  return GiveFrom(out, size, [] {
    Json all = Json::array();
    for (const Fault& fault : PeekState().faults) all.push_back(FaultToJson(fault));
    return all.dump(2);
  });
}

int32_t pbPenFault(uint64_t penId, const char* function, int32_t call, int32_t error) {
  return ChangePen(penId, [=](Bench&, Pen& pen) {
    const Fault fault{function ? function : "", call, error};
    CheckFault(fault);
    pen.faults.push_back(fault);
  });
}

int32_t pbClearPenFaults(uint64_t penId) {
  return ChangePen(penId, [](Bench&, Pen& pen) { pen.faults.clear(); });
}

int32_t pbTrace(const char* file) {
  return Control([=] {
    Bench bench;
    const std::string path = file ? std::filesystem::absolute(file).string() : "";
    if (file && !std::ofstream(path, std::ios::app)) {
      throw Problem(pbErrFile, fmt::format("the trace {} cannot be written: {}", path, std::strerror(errno)));
    }
    bench.state().trace = path;
    bench.SaveState();
  });
}

void pbSetHook(pbHook hook, void* context) {
  SetHook(hook, context);
}

int32_t pbCallCount(void) {
  return CallCount();
}

int32_t pbCall(int32_t number, char* out, int32_t size) {
  return Give(Call(number), out, size);
}

int32_t pbOpenChannels(void) {
  return Connections::Instance().channels();
}

int32_t pbThreads(void) {
  return TransferThreads();
}

int32_t pbMarks(void) {
  return Connections::Instance().marks();
}

}  // extern "C"
