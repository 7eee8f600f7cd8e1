// A pen library that does whatever the interface does not forbid: it calls its own functions, claims more pens than
// there is room for, leaves texts without an end, makes progress calls from threads of its own, for other pens and when
// the transfer is long over, and sets the error number on success.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "platform/Tessvik.h"

namespace {

struct Late {
  pcProgressFunction progress;
  void* context;
};
Late g_late{nullptr, nullptr};

int32_t Leave(int32_t result, int error) {
  errno = error;
  return result;
}

// The progress call that the last transfer still owes.
void MakeLateCall() {
  const Late late = g_late;
  g_late = {nullptr, nullptr};
  if (late.progress) late.progress(99, 1, 1, late.context);
}

int32_t Transfer(int32_t pen, uint64_t size, pcProgressFunction progress, void* context) {
  if (!progress) return 0;
  int32_t answer = 0;
  std::thread([&] {
    for (uint64_t done = 1; done <= size && answer == 0; ++done) answer = progress(pen, size, done, context);
  }).join();
  g_late = {progress, context};
  return answer == 0 ? 0 : 120 + answer;
}

}  // namespace

extern "C" {

int32_t pcGetPenHandles(int32_t* handles, int32_t capacity) {
  MakeLateCall();
  for (int32_t i = 0; i < capacity; ++i) handles[i] = 100 + i;
  return Leave(capacity == 1 ? -3 : 1000, 11);
}

int32_t pcGetPenId(int32_t penHandle, uint64_t* penId, const int32_t* channel, char* name, int32_t nameSize) {
  if (!penId) return Leave(-2147483647 - 1, 12);
  *penId = 0xfedcba9876543210U + static_cast<uint64_t>(penHandle) + (channel ? static_cast<uint64_t>(*channel) : 0U);
  if (name) std::memset(name, 0xe4, static_cast<size_t>(nameSize));
  return Leave(0, 12);
}

int32_t pcGetPenType(int32_t, int32_t* penType, int32_t, int32_t reserved) {
  const auto low = static_cast<int16_t>(7 + reserved);
  std::memcpy(penType, &low, sizeof low);
  return Leave(0, 13);
}

int32_t pcGetPenState(int32_t penHandle, int32_t* state, int32_t, int32_t) {
  *state = penHandle < 0 ? 3 : 1;
  return Leave(penHandle == 0 ? 77 : 0, 14);
}

int32_t pcGetPenInfo(int32_t penHandle, int32_t, void* buffer, int32_t bufferSize, pcProgressFunction progress,
                     void* context) {
  int32_t state = 0;
  const int32_t result = pcGetPenState(penHandle, &state, 0, 0);
  if (buffer) std::memset(buffer, 'b', static_cast<size_t>(bufferSize));
  Transfer(penHandle, 3, progress, context);
  return Leave(result, 15);
}

int32_t pcGetVersionInfo(int32_t, PenVersionInfo* info) {
  std::memset(info, '"', sizeof *info);
  return Leave(0, 16);
}

uint32_t pcEnumeratePen(int32_t penHandle) {
  return static_cast<uint32_t>(Leave(penHandle, 17));
}

int32_t pcRegisterVolatile(const char* name, uint64_t penId) {
  return Leave(static_cast<int32_t>(std::strlen(name)) + static_cast<int32_t>(penId & 1), 18);
}

int32_t pcUnRegisterVolatile(const char*, uint64_t) {
  return Leave(0, 19);
}

int32_t pcStartObex(int32_t* channel, int32_t, int32_t timeoutMs) {
  *channel = -timeoutMs;
  return Leave(0, 20);
}

int32_t pcStopObex(int32_t channel) {
  return Leave(channel, 21);
}

int32_t pcGetPenletInfo(int32_t penHandle, int32_t, void*, int32_t, pcProgressFunction progress, void* context) {
  return Leave(Transfer(penHandle, 2, progress, context), 22);
}

int32_t pcGetPenletCount(int32_t, int32_t* count) {
  *count = -1;
  return Leave(0, 23);
}

int32_t pcGetPenletItem(int32_t, int32_t index, PenletInfo* item) {
  std::memset(item, 'a' + index, sizeof *item);
  return Leave(0, 24);
}

int32_t pcInstallPenlet(int32_t penHandle, int32_t, const char*, const char*, const char*, int32_t reserved,
                        pcProgressFunction progress, void* context) {
  return Leave(Transfer(penHandle, static_cast<uint64_t>(reserved), progress, context), 25);
}

int32_t pcSetPenletAttrib(int32_t, int32_t, const char*, const PenletAttribute* attributes, int32_t count) {
  return Leave(attributes ? attributes[count - 1].id : 0, 26);
}

int32_t pcUninstallPenlet(int32_t, int32_t, const char* guid) {
  return Leave(guid ? 0 : 5, 27);
}

int32_t pcDfuDetach(int32_t, int32_t reserved1, int32_t reserved2) {
  return Leave(reserved1 - reserved2, 28);
}

int32_t pcDfuDownload(int32_t penHandle, const char*, pcProgressFunction progress, void* context, int32_t reserved) {
  return Leave(Transfer(penHandle, static_cast<uint64_t>(reserved), progress, context), 29);
}

}  // extern "C"
