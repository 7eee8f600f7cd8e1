// What a progress call costs from the pen library to the host: ten million of them in one transfer, beside the same
// number of calls straight to the host's callback.
#include <benchmark/benchmark.h>

#include "installer/QuarvelPublic.h"
#include "platform/Tessvik.h"
#include "simulator/PenBench.h"
#include "tests/support/TestBundle.h"

namespace {

constexpr int64_t kCalls = 10'000'000;

benchmark::State* g_state = nullptr;

int32_t OnReport(int32_t, const PenUpdateProgressCallbackInfo* info, void*) {
  benchmark::DoNotOptimize(info->itemDone);
  return 0;
}

// The same calls without the library in between.
void HostAlone(benchmark::State& state) {
  PenUpdateProgressCallback volatile callback = OnReport;
  const PenUpdateProgressCallbackInfo info{};
  for ([[maybe_unused]] auto iteration : state) callback(1, &info, nullptr);
}
BENCHMARK(HostAlone)->Iterations(kCalls);

void ThroughTheLibrary(benchmark::State& state) {
  const TempFolder pens;
  pbSetFolder(pens.path().c_str());
  pbAddPen(R"({"id":"0x1","type":1,"firmware":"1.0.0.a"})");
  TestBundleOptions options;
  options.groups = {{.name = "Bench", .version = "1.0", .packages = {PenAppPackage("bench", "Bench", "1.0")}}};
  const TestBundle bundle(options);
  const char* const certificates[] = {MakeTestIdentity().certPem.c_str()};
  const PenUpdateCfg cfg{insFlagApps, certificates, 1, nullptr};
  int32_t handle = 0;
  pcGetPenHandles(&handle, 1);
  g_state = &state;
  const InsResCode result = insStartInstallFile(&handle, bundle.path().c_str(), &cfg, OnReport, nullptr);
  if (result != insVerifyPenFailed) state.SkipWithError("the install ended before its transfer");
}
BENCHMARK(ThroughTheLibrary)->Iterations(kCalls);

}  // namespace

// Stands before the simulated pen's: a transfer that consists of progress calls alone and then fails.
extern "C" __attribute__((visibility("default"))) int32_t pcInstallPenlet(int32_t penHandle, int32_t, const char*,
                                                                          const char*, const char*, int32_t,
                                                                          pcProgressFunction progress, void* context) {
  for ([[maybe_unused]] auto iteration : *g_state) progress(penHandle, kCalls, 1, context);
  return 1;
}

BENCHMARK_MAIN();
