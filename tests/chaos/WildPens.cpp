#include "tests/chaos/WildPens.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "platform/Tessvik.h"

namespace {

using wild::Below;
using wild::kPens;
using wild::OneIn;

constexpr int32_t kError = 0x1234;
constexpr int32_t kHandleStep = 100;
constexpr int kPollsAway = 2;

struct Pen {
  int32_t handle;
  int32_t state = pcPenStateNormal;
  int pollsAway = 0;
};

struct Transfer {
  pcProgressFunction progress = nullptr;
  void* context = nullptr;
};

std::mutex g_lock;
std::array<Pen, kPens> g_pens = {Pen{1}, Pen{2}, Pen{3}};
std::set<std::pair<std::string, uint64_t>> g_marks;
std::set<int32_t> g_channels;
int32_t g_lastChannel = 0;
Transfer g_lastTransfer;

std::atomic<unsigned> g_seeds = 1;

// The pen under a handle, null when it has another one by now or, sometimes, for no reason.
Pen* Find(int32_t handle) {
  if (OneIn(60)) return nullptr;
  const auto found = std::find_if(g_pens.begin(), g_pens.end(), [=](const Pen& pen) { return pen.handle == handle; });
  return found == g_pens.end() ? nullptr : &*found;
}

int32_t Reach(int32_t handle) {
  const std::lock_guard lock(g_lock);
  return Find(handle) ? 0 : kError;
}

void Reattach(Pen& pen, int32_t state) {
  pen.handle += kHandleStep;
  pen.state = state;
  pen.pollsAway = kPollsAway;
}

// A text that sometimes fills its field to the last byte.
template <size_t size>
void Answer(char (&field)[size], const char* text) {
  if (OneIn(15)) {
    memset(field, 0xff, size);
  } else {
    strncpy(field, text, size - 1);
  }
}

// Reports a transfer of 100 bytes, from two threads at once now and then.
int32_t Report(int32_t handle, Transfer transfer) {
  if (!transfer.progress) return 0;
  {
    const std::lock_guard lock(g_lock);
    g_lastTransfer = transfer;
  }
  const auto report = [=] {
    int32_t answer = 0;
    for (uint64_t done = 0; done <= 100 && answer == 0; done += 20) {
      answer = transfer.progress(OneIn(20) ? handle + 1 : handle, 100, OneIn(20) ? UINT64_MAX : done, transfer.context);
    }
    return answer;
  };
  std::jthread second;
  if (OneIn(4)) second = std::jthread(report);
  return report() != 0 || OneIn(20) ? kError : 0;
}

}  // namespace

int wild::Below(int limit) {
  thread_local std::minstd_rand random(g_seeds++);
  return std::uniform_int_distribution<int>(0, limit - 1)(random);
}

int32_t wild::HandleOf(int pen) {
  const std::lock_guard lock(g_lock);
  return g_pens[static_cast<size_t>(pen)].handle;
}

uint64_t wild::IdOf(int pen) {
  return 0x1000u + static_cast<uint64_t>(pen);
}

bool wild::AllAtRest() {
  const std::lock_guard lock(g_lock);
  return g_marks.empty() && g_channels.empty();
}

void wild::CallLate() {
  Transfer late;
  {
    const std::lock_guard lock(g_lock);
    late = g_lastTransfer;
  }
  if (late.progress) late.progress(HandleOf(Below(kPens)), 100, 50, late.context);
}

int32_t pcGetPenHandles(int32_t* handles, int32_t capacity) {
  const std::lock_guard lock(g_lock);
  int32_t count = 0;
  for (Pen& pen : g_pens) {
    if (pen.pollsAway > 0) {
      --pen.pollsAway;
    } else if (count < capacity) {
      handles[count++] = pen.handle;
    }
  }
  return OneIn(20) ? (OneIn(2) ? -count : 1'000'000) : count;
}

int32_t pcGetPenId(int32_t penHandle, uint64_t* penId, const int32_t*, char* name, int32_t nameSize) {
  const std::lock_guard lock(g_lock);
  const Pen* const pen = Find(penHandle);
  if (!pen) return kError;
  *penId = wild::IdOf(static_cast<int>(pen - g_pens.data()));
  if (name) memset(name, 'n', static_cast<size_t>(nameSize));
  return 0;
}

int32_t pcGetPenType(int32_t penHandle, int32_t* penType, int32_t, int32_t) {
  *penType = penHandle % kHandleStep;
  return Reach(penHandle);
}

int32_t pcGetPenState(int32_t penHandle, int32_t* state, int32_t, int32_t) {
  const std::lock_guard lock(g_lock);
  const Pen* const pen = Find(penHandle);
  if (!pen) return kError;
  *state = OneIn(40) ? -1 : pen->state;
  return 0;
}

int32_t pcGetPenInfo(int32_t penHandle, int32_t, void*, int32_t, pcProgressFunction, void*) {
  return Reach(penHandle);
}

int32_t pcGetVersionInfo(int32_t penHandle, PenVersionInfo* info) {
  Answer(info->firmwareVersion, OneIn(20) ? "newest" : "12-34-080915");
  Answer(info->versionSuffix, "b2");
  return Reach(penHandle);
}

uint32_t pcEnumeratePen(int32_t penHandle) {
  return static_cast<uint32_t>(Reach(penHandle));
}

int32_t pcRegisterVolatile(const char* name, uint64_t penId) {
  const std::lock_guard lock(g_lock);
  return g_marks.emplace(name, penId).second ? 0 : kError;
}

int32_t pcUnRegisterVolatile(const char* name, uint64_t penId) {
  const std::lock_guard lock(g_lock);
  return g_marks.erase({name, penId}) == 1 && !OneIn(40) ? 0 : kError;
}

int32_t pcStartObex(int32_t* channel, int32_t penHandle, int32_t) {
  const std::lock_guard lock(g_lock);
  if (!Find(penHandle)) return kError;
  *channel = ++g_lastChannel;
  g_channels.insert(*channel);
  return 0;
}

int32_t pcStopObex(int32_t channel) {
  const std::lock_guard lock(g_lock);
  return g_channels.erase(channel) == 1 ? 0 : kError;
}

int32_t pcGetPenletInfo(int32_t penHandle, int32_t, void*, int32_t, pcProgressFunction, void*) {
  return Reach(penHandle);
}

int32_t pcGetPenletCount(int32_t penHandle, int32_t* count) {
  *count = OneIn(20) ? (OneIn(2) ? -1 : INT32_MAX) : Below(5);
  return Reach(penHandle);
}

int32_t pcGetPenletItem(int32_t, int32_t index, PenletInfo* item) {
  const std::string number = std::to_string(OneIn(10) ? 0 : index);  // the same penlet again
  item->present = OneIn(10) ? 0 : 1;
  item->buildNumber = Below(3);
  Answer(item->name, "Pen application");
  Answer(item->guid, ("App" + number).c_str());
  Answer(item->version, "1.0");
  Answer(item->groupName, "Games");
  Answer(item->groupVersion, OneIn(2) ? "1.0" : "");
  return OneIn(60) ? kError : 0;
}

int32_t pcInstallPenlet(int32_t penHandle, int32_t, const char*, const char*, const char*, int32_t,
                        pcProgressFunction progress, void* context) {
  const int32_t reached = Reach(penHandle);
  return reached == 0 ? Report(penHandle, {progress, context}) : reached;
}

int32_t pcSetPenletAttrib(int32_t penHandle, int32_t, const char*, const PenletAttribute*, int32_t) {
  return Reach(penHandle);
}

int32_t pcUninstallPenlet(int32_t penHandle, int32_t, const char*) {
  return Reach(penHandle);
}

int32_t pcDfuDetach(int32_t penHandle, int32_t, int32_t) {
  const std::lock_guard lock(g_lock);
  Pen* const pen = Find(penHandle);
  if (!pen) return kError;
  Reattach(*pen, pcPenStateFirmwareDownload);
  return 0;
}

int32_t pcDfuDownload(int32_t penHandle, const char*, pcProgressFunction progress, void* context, int32_t) {
  const int32_t result = Report(penHandle, {progress, context});
  const std::lock_guard lock(g_lock);
  Pen* const pen = Find(penHandle);
  if (!pen || result != 0) return kError;
  Reattach(*pen, pcPenStateNormal);
  return 0;
}
