#include "simulator/SimClock.h"

#include <chrono>
#include <mutex>
#include <thread>

namespace sim {
namespace {

struct Functions {
  NowFunction now = nullptr;
  SleepFunction sleep = nullptr;
  void* context = nullptr;
};

std::mutex g_lock;
Functions g_functions;

Functions Current() {
  const std::lock_guard lock(g_lock);
  return g_functions;
}

}  // namespace

void SetClock(NowFunction now, SleepFunction sleep, void* context) {
  const std::lock_guard lock(g_lock);
  g_functions = {now, sleep, context};
}

int64_t Now() {
  const Functions functions = Current();
  if (functions.now) return functions.now(functions.context);
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();
}

void Sleep(int64_t milliseconds) {
  if (milliseconds <= 0) return;
  const Functions functions = Current();
  if (functions.sleep) {
    functions.sleep(functions.context, milliseconds);
  } else {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  }
}

}  // namespace sim
