// A host that calls every pen function and prints all that it is answered. It stands in a library of its own, which one
// program links and another loads at run time.
#include "tests/trace/Caller.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/Tessvik.h"

namespace {

// Counts for one transfer; asks to stop at a tick. It outlives its transfer, since late calls come to it.
struct Watch {
  std::atomic<int> ticks{0};
  int stopAt = -1;
  int killAt = -1;
  bool throws = false;
  bool calls = false;
};

int32_t OnProgress(int32_t pen, uint64_t total, uint64_t done, void* context) {
  auto& watch = *static_cast<Watch*>(context);
  const int tick = ++watch.ticks;
  if (tick <= 3 || pen == 99) {
    std::printf("tick %d of pen %d: %llu of %llu\n", tick, pen, static_cast<unsigned long long>(done),
                static_cast<unsigned long long>(total));
  }
  if (tick == watch.killAt) std::raise(SIGKILL);
  if (watch.throws) throw tick;
  int32_t state = 0;
  if (watch.calls) pcGetPenState(pen, &state, 0, 0);
  errno = 200;
  return tick == watch.stopAt ? 3 : 0;
}

void Tell(const char* function, int64_t result) {
  std::printf("%s %lld errno %d\n", function, static_cast<long long>(result), errno);
  errno = 100;
}

template <size_t kSize>
std::string Field(const char (&field)[kSize]) {
  return {field, strnlen(field, kSize)};
}

int32_t FirstPen() {
  int32_t handles[20] = {};
  const int32_t count = pcGetPenHandles(handles, 20);
  Tell("pcGetPenHandles", count);
  for (const int32_t handle : handles) std::printf(" %d", handle);
  std::printf("\n");
  Tell("pcGetPenHandles", pcGetPenHandles(handles, 1));
  return handles[0];
}

void Look(int32_t pen) {
  uint64_t id = 0;
  char name[100] = "";
  Tell("pcGetPenId", pcGetPenId(pen, &id, nullptr, name, sizeof name));
  std::printf("%llx %s\n", static_cast<unsigned long long>(id), Field(name).c_str());
  Tell("pcGetPenId", pcGetPenId(pen, nullptr, nullptr, nullptr, 0));
  int32_t type = 0x10000;
  Tell("pcGetPenType", pcGetPenType(pen, &type, 0, 0));
  int32_t state = 0;
  Tell("pcGetPenState", pcGetPenState(pen, &state, 0, 0));
  Tell("pcGetPenState", pcGetPenState(0, &state, 0, 0));
  std::printf("%d %d\n", type, state);
  Tell("pcEnumeratePen", pcEnumeratePen(pen));
  Tell("pcRegisterVolatile", pcRegisterVolatile("Install", id));
  Tell("pcUnRegisterVolatile", pcUnRegisterVolatile("Install", id));
}

void Read(int32_t pen, int32_t channel) {
  char buffer[8] = "";
  static Watch watch;
  Tell("pcGetPenInfo", pcGetPenInfo(pen, channel, buffer, sizeof buffer, OnProgress, &watch));
  Tell("pcGetPenletInfo", pcGetPenletInfo(pen, channel, nullptr, 0, OnProgress, &watch));
  std::printf("%.8s %d ticks\n", buffer, watch.ticks.load());
  PenVersionInfo version{};
  Tell("pcGetVersionInfo", pcGetVersionInfo(pen, &version));
  std::printf("%s %s\n", Field(version.firmwareVersion).c_str(), Field(version.versionSuffix).c_str());
  int32_t count = 0;
  Tell("pcGetPenletCount", pcGetPenletCount(pen, &count));
  std::printf("%d\n", count);
  PenletInfo item{};
  Tell("pcGetPenletItem", pcGetPenletItem(pen, 0, &item));
  std::printf("%s %s %s %d %d\n", Field(item.guid).c_str(), Field(item.groupName).c_str(), Field(item.version).c_str(),
              item.present, item.buildNumber);
}

void Change(int32_t pen, int32_t channel, const char* app, const char* firmware) {
  static Watch all;
  Tell("pcInstallPenlet", pcInstallPenlet(pen, channel, app, "the subject", "c2lnbmF0dXJl", 9, OnProgress, &all));
  static Watch stopped;
  stopped.stopAt = 1;
  Tell("pcInstallPenlet", pcInstallPenlet(pen, channel, app, "", "", 9, OnProgress, &stopped));
  std::printf("%d and %d ticks\n", all.ticks.load(), stopped.ticks.load());
  const PenletAttribute attributes[] = {{2, "Art \xe4\n\"\\"}, {3, "1.5"}};
  Tell("pcSetPenletAttrib", pcSetPenletAttrib(pen, channel, "draw", attributes, 2));
  Tell("pcUninstallPenlet", pcUninstallPenlet(pen, channel, "draw"));
  Tell("pcUninstallPenlet", pcUninstallPenlet(pen, channel, nullptr));
  Tell("pcStopObex", pcStopObex(channel));
  Tell("pcDfuDetach", pcDfuDetach(pen, 0, 0));
  Tell("pcDfuDownload", pcDfuDownload(pen, firmware, nullptr, nullptr, 0));
}

void CallAll(const char* app, const char* firmware) {
  errno = 100;
  const int32_t pen = FirstPen();
  Look(pen);
  int32_t channel = 0;
  Tell("pcStartObex", pcStartObex(&channel, pen, 30000));
  Read(pen, channel);
  Change(pen, channel, app, firmware);
  FirstPen();  // an odd library's late progress call comes here
}

// One transfer of so many ticks, watched.
void Transfer(Watch& watch, int32_t ticks) {
  try {
    Tell("pcInstallPenlet", pcInstallPenlet(1, 1, "file", "", "", ticks, OnProgress, &watch));
  } catch (int tick) {
    std::printf("thrown at %d\n", tick);
  }
}

void CallFromThreads(int threads, int calls) {
  std::vector<std::thread> all;
  for (int i = 0; i < threads; ++i) {
    all.emplace_back([i, calls] {
      for (int call = 0; call < calls; ++call) pcStopObex(i * 1000 + call);
    });
  }
  for (std::thread& thread : all) thread.join();
}

void CallFromChild() {
  pcStopObex(1);
  const pid_t child = fork();
  if (child == 0) {
    pcStopObex(2);
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  pcStopObex(3);
}

// As a host that turns itself into a service does; then a file of its own takes the number.
void CloseEverything(const char* file) {
  pcStopObex(1);
  for (int descriptor = 3; descriptor < 200; ++descriptor) close(descriptor);
  FILE* own = std::fopen(file, "w");
  for (int descriptor = 3; descriptor < 200; ++descriptor)
    dup2(fileno(own), descriptor == fileno(own) ? 0 : descriptor);
  pcStopObex(2);
  std::fclose(own);
}

void Measure(int calls) {
  using Clock = std::chrono::steady_clock;
  const auto perCall = [](Clock::duration took, int count) {
    return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(took).count()) / count;
  };
  auto began = Clock::now();
  for (int i = 0; i < calls; ++i) pcStopObex(i);
  std::printf("%.0f ns a call, ", perCall(Clock::now() - began, calls));
  Watch watch;
  began = Clock::now();
  watch.ticks = 1000;
  pcInstallPenlet(
      1, 1, "file", "", "", calls, [](int32_t, uint64_t, uint64_t, void*) { return 0; }, &watch);
  std::printf("%.0f ns a progress call\n", perCall(Clock::now() - began, calls));
}

}  // namespace

extern "C" int RunCaller(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  const int number = argc > 2 ? std::atoi(argv[2]) : 0;
  Watch watch;
  if (what == "all") CallAll(argc > 2 ? argv[2] : "", argc > 3 ? argv[3] : "");
  if (what == "limited") {
    const rlimit limit{static_cast<rlim_t>(number), static_cast<rlim_t>(number)};
    setrlimit(RLIMIT_FSIZE, &limit);
    CallAll("", "");
  }
  if (what == "ticks") Transfer(watch, number);
  if (what == "stop") watch.stopAt = number, Transfer(watch, number + 10);
  if (what == "kill") watch.killAt = number, Transfer(watch, number + 10);
  if (what == "calls") watch.calls = true, Transfer(watch, number);
  if (what == "threads") CallFromThreads(4, number);
  if (what == "fork") CallFromChild();
  if (what == "close" && argc > 2) CloseEverything(argv[2]);
  if (what == "measure") Measure(number);
  return 0;
}
