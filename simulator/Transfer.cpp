#include "simulator/Transfer.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <thread>

#include "simulator/Bench.h"
#include "simulator/Problem.h"
#include "simulator/SimClock.h"

namespace sim {
namespace {

constexpr int32_t kForeignHandle = 30000;

struct LateCall {
  int32_t penHandle;
  uint64_t size;
  Progress progress;
};

std::mutex g_lateLock;
std::optional<LateCall> g_late;
std::atomic<int32_t> g_threads = 0;

// A counted thread that is waited for when the object goes.
class OwnThread {
 public:
  template <typename Work>
  explicit OwnThread(Work work) : m_thread(std::move(work)) {
    ++g_threads;
  }
  ~OwnThread() {
    m_thread.join();
    --g_threads;
  }
  OwnThread(const OwnThread&) = delete;
  OwnThread& operator=(const OwnThread&) = delete;

 private:
  std::thread m_thread;
};

void Unplug(uint64_t id) {
  Bench bench;
  Pen* pen = bench.Find(id);
  if (!pen) return;
  pen->connected = false;
  pen->handle = 0;
  pen->schedule.clear();
  pen->settings.unplugAt = -1;  // once
  bench.Save(*pen);
}

bool IsOnBus(const Pen& pen) {
  try {
    return PeekOnBus(pen.handle)->id == pen.id;
  } catch (const Problem&) {
    return false;
  }
}

// One tick: `done` bytes have arrived. Returns the error that ends the transfer, 0 to go on.
int32_t Tick(const Pen& pen, uint64_t done, uint64_t size, const Progress& progress) {
  if (pen.settings.unplugAt >= 0 && done >= static_cast<uint64_t>(pen.settings.unplugAt)) Unplug(pen.id);
  if (!IsOnBus(pen)) return pbErrUnplugged;
  if (!progress.function) return 0;
  return progress.function(pen.handle, size, done, progress.context) == 0 ? 0 : int32_t{pbErrStopped};
}

int32_t MoveAllBytes(const Pen& pen, uint64_t size, const Progress& progress) {
  const int64_t began = Now();
  const auto tick = static_cast<uint64_t>(std::max<int64_t>(pen.settings.tickSize, 1));
  uint64_t done = 0;
  do {
    done = std::min(size, done + tick);
    if (pen.settings.transferSpeed > 0) {
      const auto due = static_cast<int64_t>(done * 1000 / static_cast<uint64_t>(pen.settings.transferSpeed));
      Sleep(began + due - Now());
    }
    const int32_t error = Tick(pen, done, size, progress);
    if (error != 0) return error;
  } while (done < size);
  return 0;
}

// Throws nothing: it may be all that a thread does.
int32_t MoveBytes(const Pen& pen, uint64_t size, const Progress& progress) {
  try {
    return MoveAllBytes(pen, size, progress);
  } catch (const Problem& problem) {
    return problem.error();
  } catch (const std::exception&) {
    return pbErrFolder;
  }
}

// Progress calls as a faulty library makes them, beside the transfer.
void StrayCalls(const Pen& pen, uint64_t size, const Progress& progress) {
  if (!progress.function) return;
  for (uint64_t i = 0; i < 20; ++i) {
    progress.function(pen.handle + kForeignHandle, size, i, progress.context);
    progress.function(pen.handle, size, size * i / 20, progress.context);
  }
  const std::lock_guard lock(g_lateLock);
  g_late = LateCall{pen.handle, size, progress};
}

}  // namespace

int32_t TransferThreads() {
  return g_threads;
}

void Transfer(const Pen& pen, uint64_t size, const Progress& progress) {
  int32_t error = 0;
  {
    std::optional<OwnThread> stray;
    if (pen.settings.strayProgress) stray.emplace([&] { StrayCalls(pen, size, progress); });
    if (pen.settings.ownThread) {
      OwnThread([&] { error = MoveBytes(pen, size, progress); });
    } else {
      error = MoveBytes(pen, size, progress);
    }
  }
  if (error != 0) throw Problem(error);
}

void MakeLateProgressCall() {
  std::optional<LateCall> late;
  {
    const std::lock_guard lock(g_lateLock);
    late.swap(g_late);
  }
  if (late) late->progress.function(late->penHandle, late->size, late->size, late->progress.context);
}

}  // namespace sim
