#include "trace/Ticks.h"

#include <errno.h>
#include <time.h>

#include "trace/TraceFile.h"

namespace trace {

struct Slot {
  // Set once, before the pen library learns of the slot.
  pcProgressFunction function;
  void* context;

  BriefLock lock;
  // The rest belongs to the lock's holder.
  bool isInUse;
  uint32_t call;  // the last one that used it
  uint32_t count;
  uint32_t late;  // that came when no call was using it
  uint32_t stops;
  uint32_t written;
  int64_t nextSecond;  // when time alone makes a tick worth writing
  int64_t pause;
  int32_t pen;
  uint64_t total;
  uint64_t done;
  int32_t answer;
};

namespace {

// A host that makes a new context for every transfer gets so many of them recorded.
constexpr uint32_t kSlots = 1024;
constexpr uint32_t kMostWritten = 64;
constexpr uint32_t kFirstWritten = 4;
constexpr uint32_t kMostStops = 8;

BriefLock g_lock;
Slot g_slots[kSlots];
uint32_t g_used = 0;  // slots that have a function; belongs to the holder of g_lock

int64_t CoarseSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec;
}

bool IsPowerOfTwo(uint32_t number) {
  return (number & (number - 1)) == 0;
}

// The first ones, those that ask to stop, then ever fewer by number and by time.
bool IsWorthWriting(Slot& slot) {
  if (slot.written >= kMostWritten) return false;
  if (slot.count <= kFirstWritten || IsPowerOfTwo(slot.count)) return true;
  if (slot.answer != 0 && ++slot.stops <= kMostStops) return true;
  const int64_t now = CoarseSeconds();
  if (now < slot.nextSecond) return false;
  slot.nextSecond = now + slot.pause;
  slot.pause *= 2;
  return true;
}

void DescribeTick(Line& line, const Slot& slot) {
  line.Number("pen", slot.pen).Unsigned("total", slot.total).Unsigned("done", slot.done);
  line.Number("answer", slot.answer);
}

// Counts the tick; true when the line that tells of it is to be written.
bool Count(Slot& slot, int32_t pen, uint64_t total, uint64_t done, int32_t answer, Line& line) {
  if (!slot.lock.TryFor()) return false;
  bool isWritten = false;
  if (slot.isInUse) {
    ++slot.count;
    slot.pen = pen;
    slot.total = total;
    slot.done = done;
    slot.answer = answer;
    isWritten = IsWorthWriting(slot);
  } else {
    ++slot.late;
  }
  if (isWritten) {
    ++slot.written;
    line.Unsigned("tick", slot.count).Unsigned("call", slot.call).Number("process", ProcessId());
    line.Number("time", Microseconds());
    DescribeTick(line, slot);
  }
  slot.lock.Release();
  return isWritten;
}

int32_t OnTick(int32_t pen, uint64_t total, uint64_t done, void* context) {
  Slot& slot = *static_cast<Slot*>(context);
  const int32_t answer = slot.function(pen, total, done, slot.context);
  const int error = errno;
  Line line;
  if (IsRecording() && Count(slot, pen, total, done, answer, line)) Append(line);
  errno = error;
  return answer;
}

void Begin(Slot& slot, uint32_t call) {
  slot.isInUse = true;
  slot.call = call;
  slot.count = slot.stops = slot.written = 0;
  slot.pause = 1;
  slot.nextSecond = CoarseSeconds() + 1;
}

// A slot for the pair that no call uses now; null when there is none.
Slot* Claim(uint32_t call, pcProgressFunction function, void* context) {
  for (uint32_t i = 0; i < g_used; ++i) {
    Slot& slot = g_slots[i];
    if (slot.function != function || slot.context != context || !slot.lock.TryFor()) continue;
    const bool isFree = !slot.isInUse;
    if (isFree) Begin(slot, call);
    slot.lock.Release();
    if (isFree) return &slot;
  }
  if (g_used == kSlots) return nullptr;
  Slot& slot = g_slots[g_used];
  slot.function = function;
  slot.context = context;
  Begin(slot, call);
  ++g_used;
  return &slot;
}

}  // namespace

Ticks::Ticks(uint32_t call, pcProgressFunction function, void* context)
    : m_function(function), m_context(context), m_slot(nullptr) {
  if (!function || !IsRecording() || !g_lock.TryFor()) return;
  m_slot = Claim(call, function, context);
  g_lock.Release();
}

Ticks::~Ticks() {
  if (!m_slot || !m_slot->lock.TryFor()) return;
  m_slot->isInUse = false;
  m_slot->lock.Release();
}

pcProgressFunction Ticks::Function() const {
  return m_slot ? OnTick : m_function;
}

void* Ticks::Context() const {
  return m_slot ? m_slot : m_context;
}

void Ticks::Describe(Line& line) {
  if (!m_function || !m_slot || !m_slot->lock.TryFor()) return;
  line.OpenObject("ticks").Unsigned("count", m_slot->count).Unsigned("late", m_slot->late);
  if (m_slot->count > 0) DescribeTick(line, *m_slot);
  line.Close();
  m_slot->late = 0;
  m_slot->lock.Release();
}

}  // namespace trace
