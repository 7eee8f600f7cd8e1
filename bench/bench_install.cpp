// How long an install takes by itself: one simulated pen at full speed gets PACKAGES applications of 1 MB each, and
// every call of a pen function is timed on its way. The library's own time is the rest, with what its progress function
// takes while a pen call runs.
//   bench_install PACKAGES [TIMES]
// prints, for each time, the seconds of: loading the bundle, verifying it, the install as a whole, the pen calls of the
// install, and the library's own time in it. Each time has a bundle and a pen of its own.
#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <random>
#include <string>

#include "installer/QuarvelPublic.h"
#include "platform/Tessvik.h"
#include "simulator/PenBench.h"
#include "tests/support/TestBundle.h"

namespace {

using Clock = std::chrono::steady_clock;

// Adds the time between its construction and its end.
class Timed {
 public:
  explicit Timed(std::atomic<int64_t>& nanoseconds) : m_nanoseconds(nanoseconds) {}
  ~Timed() { m_nanoseconds += std::chrono::nanoseconds(Clock::now() - m_start).count(); }
  Timed(const Timed&) = delete;
  Timed& operator=(const Timed&) = delete;

 private:
  std::atomic<int64_t>& m_nanoseconds;
  const Clock::time_point m_start = Clock::now();
};

std::atomic<int64_t> g_penCalls;
std::atomic<int64_t> g_progress;  // within pen calls

// The library's progress function, timed.
struct TimedProgress {
  pcProgressFunction function;
  void* context;
  static int32_t Call(int32_t penHandle, uint64_t totalBytes, uint64_t doneBytes, void* context) {
    const Timed timed(g_progress);
    const auto* self = static_cast<TimedProgress*>(context);
    return self->function(penHandle, totalBytes, doneBytes, self->context);
  }
};

int32_t OnReport(int32_t, const PenUpdateProgressCallbackInfo*, void*) {
  return 0;
}

[[noreturn]] void Fail(const char* what, int result) {
  fmt::print(stderr, "bench_install: {}: {}\n", what, result);
  std::exit(1);
}

template <class Step>
double Seconds(const char* what, Step step) {
  const auto start = Clock::now();
  const InsResCode result = step();
  const std::chrono::duration<double> taken = Clock::now() - start;
  if (result != insSuccess) Fail(what, result);
  return taken.count();
}

TestBundleOptions Applications(int count) {
  std::mt19937_64 random(1);
  TestBundleOptions options;
  options.groups = {{.name = "Bench", .version = "1.0"}};
  for (int i = 0; i < count; ++i) {
    std::string payload(1 << 20, '\0');
    for (size_t at = 0; at < payload.size(); at += 2) payload[at] = static_cast<char>(random());
    const std::string guid = fmt::format("app{}", i);
    TestPackage package = PenAppPackage(guid, guid, "1.0", 0, i);
    package.content = PenAppContent(guid, "1.0", 0, guid, "app", payload);
    options.groups[0].packages.push_back(std::move(package));
  }
  return options;
}

void InstallOnce(int packages) {
  const TempFolder pens;
  pbReset();
  pbSetFolder(pens.path().c_str());
  pbAddPen(R"({"id":"0x1","type":1,"firmware":"1.0.0.a"})");
  pbSet(1, "free-space", "1000000000");
  int32_t pen = 0;
  pcGetPenHandles(&pen, 1);
  const TestBundle file(Applications(packages));
  const char* const certificates[] = {MakeTestIdentity().certPem.c_str()};
  const PenUpdateCfg cfg{insFlagApps, certificates, 1, nullptr};
  int bundle = 0;
  const double load = Seconds("load", [&] { return insLoadBundle(file.path().c_str(), &bundle); });
  const double verify = Seconds("verify", [&] { return insVerifyBundle(bundle, &cfg); });
  g_penCalls = g_progress = 0;
  const double install = Seconds("install", [&] { return insStartInstall(&pen, bundle, &cfg, OnReport, nullptr); });
  insReleaseBundle(bundle);
  const double penCalls = static_cast<double>(g_penCalls - g_progress) / 1e9;
  fmt::print("{:.6f} {:.6f} {:.6f} {:.6f} {:.6f}\n", load, verify, install, penCalls, install - penCalls);
}

}  // namespace

// The linker puts these in the way of the library's calls (--wrap).
#define TIMED_PEN_FUNCTION(result, name, parameters, arguments) \
  extern "C" result __real_##name parameters;                   \
  extern "C" result __wrap_##name parameters {                  \
    const Timed timed(g_penCalls);                              \
    return __real_##name arguments;                             \
  }
TIMED_PEN_FUNCTION(int32_t, pcGetPenHandles, (int32_t * handles, int32_t capacity), (handles, capacity))
TIMED_PEN_FUNCTION(int32_t, pcGetPenId, (int32_t pen, uint64_t* id, const int32_t* channel, char* name, int32_t size),
                   (pen, id, channel, name, size))
TIMED_PEN_FUNCTION(int32_t, pcGetPenType, (int32_t pen, int32_t* type, int32_t a, int32_t b), (pen, type, a, b))
TIMED_PEN_FUNCTION(int32_t, pcGetPenState, (int32_t pen, int32_t* state, int32_t a, int32_t b), (pen, state, a, b))
TIMED_PEN_FUNCTION(int32_t, pcGetPenInfo, (int32_t pen, int32_t a, void* b, int32_t c, pcProgressFunction d, void* e),
                   (pen, a, b, c, d, e))
TIMED_PEN_FUNCTION(int32_t, pcGetVersionInfo, (int32_t pen, PenVersionInfo* info), (pen, info))
TIMED_PEN_FUNCTION(uint32_t, pcEnumeratePen, (int32_t pen), (pen))
TIMED_PEN_FUNCTION(int32_t, pcRegisterVolatile, (const char* name, uint64_t id), (name, id))
TIMED_PEN_FUNCTION(int32_t, pcUnRegisterVolatile, (const char* name, uint64_t id), (name, id))
TIMED_PEN_FUNCTION(int32_t, pcStartObex, (int32_t * channel, int32_t pen, int32_t timeout), (channel, pen, timeout))
TIMED_PEN_FUNCTION(int32_t, pcStopObex, (int32_t channel), (channel))
TIMED_PEN_FUNCTION(int32_t, pcGetPenletInfo,
                   (int32_t pen, int32_t a, void* b, int32_t c, pcProgressFunction d, void* e), (pen, a, b, c, d, e))
TIMED_PEN_FUNCTION(int32_t, pcGetPenletCount, (int32_t pen, int32_t* count), (pen, count))
TIMED_PEN_FUNCTION(int32_t, pcGetPenletItem, (int32_t pen, int32_t index, PenletInfo* item), (pen, index, item))
TIMED_PEN_FUNCTION(int32_t, pcSetPenletAttrib,
                   (int32_t pen, int32_t channel, const char* guid, const PenletAttribute* values, int32_t count),
                   (pen, channel, guid, values, count))

extern "C" decltype(pcInstallPenlet) __real_pcInstallPenlet;
extern "C" int32_t __wrap_pcInstallPenlet(int32_t pen, int32_t channel, const char* file, const char* subject,
                                          const char* signature, int32_t reserved, pcProgressFunction progress,
                                          void* context) {
  const Timed timed(g_penCalls);
  TimedProgress ours{progress, context};
  return __real_pcInstallPenlet(pen, channel, file, subject, signature, reserved, TimedProgress::Call, &ours);
}

int main(int argc, char** argv) {
  const int packages = argc > 1 ? std::atoi(argv[1]) : 0;
  const int times = argc > 2 ? std::atoi(argv[2]) : 1;
  if (packages < 1 || times < 1) {
    fmt::print(stderr, "usage: bench_install PACKAGES [TIMES]\n");
    return 2;
  }
  for (int i = 0; i < times; ++i) InstallOnce(packages);
  return 0;
}
