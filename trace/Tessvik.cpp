// The nineteen functions of the pen library, recorded and passed on to the library behind this one.
#include "platform/Tessvik.h"

#include "trace/Call.h"
#include "trace/Members.h"
#include "trace/NextLibrary.h"
#include "trace/Ticks.h"

namespace {

using namespace trace;

#define NEXT(function) reinterpret_cast<decltype(&(function))>(FindNext(#function))

}  // namespace

extern "C" {

int32_t pcGetPenHandles(int32_t* handles, int32_t capacity) {
  Call call("pcGetPenHandles", 0);
  if (call) {
    call.line().Number("capacity", capacity);
    TellNull(call.line(), "handles", handles);
  }
  const int32_t count = call.Make(NEXT(pcGetPenHandles), handles, capacity);
  if (call) TellHandles(call.line(), handles, capacity, count);
  call.End();
  return count;
}

int32_t pcGetPenId(int32_t penHandle, uint64_t* penId, const int32_t* channel, char* name, int32_t nameSize) {
  Call call("pcGetPenId", penHandle);
  if (call) {
    if (channel) call.line().Number("channel", *channel);
    call.line().Number("nameSize", nameSize);
    TellNull(call.line(), "id", penId);
    TellNull(call.line(), "name", name);
  }
  const int32_t result = call.Make(NEXT(pcGetPenId), penHandle, penId, channel, name, nameSize);
  if (call.HasAnswers(result)) {
    if (penId) call.line().Id("id", *penId);
    if (name && nameSize > 0) call.line().Text("name", name, static_cast<size_t>(nameSize));
  }
  call.End();
  return result;
}

int32_t pcGetPenType(int32_t penHandle, int32_t* penType, int32_t channel, int32_t reserved) {
  Call call("pcGetPenType", penHandle);
  if (call) {
    call.line().Number("channel", channel).Number("reserved", reserved);
    TellNull(call.line(), "type", penType);
  }
  const int32_t result = call.Make(NEXT(pcGetPenType), penHandle, penType, channel, reserved);
  if (call.HasAnswers(result) && penType) call.line().Number("type", *penType);
  call.End();
  return result;
}

int32_t pcGetPenState(int32_t penHandle, int32_t* state, int32_t channel, int32_t reserved) {
  Call call("pcGetPenState", penHandle);
  if (call) {
    call.line().Number("channel", channel).Number("reserved", reserved);
    TellNull(call.line(), "state", state);
  }
  const int32_t result = call.Make(NEXT(pcGetPenState), penHandle, state, channel, reserved);
  if (call.HasAnswers(result) && state) call.line().Number("state", *state);
  call.End();
  return result;
}

int32_t pcGetPenInfo(int32_t penHandle, int32_t channel, void* buffer, int32_t bufferSize, pcProgressFunction progress,
                     void* context) {
  Call call("pcGetPenInfo", penHandle);
  if (call) TellTransfer(call.line(), channel, buffer, bufferSize, progress);
  Ticks ticks(call.number(), progress, context);
  const int32_t result =
      call.Make(NEXT(pcGetPenInfo), penHandle, channel, buffer, bufferSize, ticks.Function(), ticks.Context());
  call.End(&ticks);
  return result;
}

int32_t pcGetVersionInfo(int32_t penHandle, PenVersionInfo* info) {
  Call call("pcGetVersionInfo", penHandle);
  if (call) TellNull(call.line(), "info", info);
  const int32_t result = call.Make(NEXT(pcGetVersionInfo), penHandle, info);
  if (call.HasAnswers(result) && info) TellVersion(call.line(), *info);
  call.End();
  return result;
}

uint32_t pcEnumeratePen(int32_t penHandle) {
  Call call("pcEnumeratePen", penHandle);
  const uint32_t result = call.Make(NEXT(pcEnumeratePen), penHandle);
  call.End();
  return result;
}

int32_t pcRegisterVolatile(const char* name, uint64_t penId) {
  Call call("pcRegisterVolatile", 0);
  if (call) call.line().Text("name", name, kLongestText).Id("id", penId);
  const int32_t result = call.Make(NEXT(pcRegisterVolatile), name, penId);
  call.End();
  return result;
}

int32_t pcUnRegisterVolatile(const char* name, uint64_t penId) {
  Call call("pcUnRegisterVolatile", 0);
  if (call) call.line().Text("name", name, kLongestText).Id("id", penId);
  const int32_t result = call.Make(NEXT(pcUnRegisterVolatile), name, penId);
  call.End();
  return result;
}

int32_t pcStartObex(int32_t* channel, int32_t penHandle, int32_t timeoutMs) {
  Call call("pcStartObex", penHandle);
  if (call) {
    call.line().Number("timeout", timeoutMs);
    TellNull(call.line(), "channel", channel);
  }
  const int32_t result = call.Make(NEXT(pcStartObex), channel, penHandle, timeoutMs);
  if (call.HasAnswers(result) && channel) call.line().Number("channel", *channel);
  call.End();
  return result;
}

int32_t pcStopObex(int32_t channel) {
  Call call("pcStopObex", 0);
  if (call) call.line().Number("channel", channel);
  const int32_t result = call.Make(NEXT(pcStopObex), channel);
  call.End();
  return result;
}

int32_t pcGetPenletInfo(int32_t penHandle, int32_t channel, void* buffer, int32_t bufferSize,
                        pcProgressFunction progress, void* context) {
  Call call("pcGetPenletInfo", penHandle);
  if (call) TellTransfer(call.line(), channel, buffer, bufferSize, progress);
  Ticks ticks(call.number(), progress, context);
  const int32_t result =
      call.Make(NEXT(pcGetPenletInfo), penHandle, channel, buffer, bufferSize, ticks.Function(), ticks.Context());
  call.End(&ticks);
  return result;
}

int32_t pcGetPenletCount(int32_t penHandle, int32_t* count) {
  Call call("pcGetPenletCount", penHandle);
  if (call) TellNull(call.line(), "count", count);
  const int32_t result = call.Make(NEXT(pcGetPenletCount), penHandle, count);
  if (call.HasAnswers(result) && count) call.line().Number("count", *count);
  call.End();
  return result;
}

int32_t pcGetPenletItem(int32_t penHandle, int32_t index, PenletInfo* item) {
  Call call("pcGetPenletItem", penHandle);
  if (call) {
    call.line().Number("index", index);
    TellNull(call.line(), "item", item);
  }
  const int32_t result = call.Make(NEXT(pcGetPenletItem), penHandle, index, item);
  if (call.HasAnswers(result) && item) TellItem(call.line(), *item);
  call.End();
  return result;
}

int32_t pcInstallPenlet(int32_t penHandle, int32_t channel, const char* file, const char* subject,
                        const char* signature, int32_t reserved, pcProgressFunction progress, void* context) {
  Call call("pcInstallPenlet", penHandle);
  if (call) {
    call.line().Number("channel", channel).Number("reserved", reserved).Flag("progress", progress != nullptr);
    TellFile(call.line(), file);
    call.line().Text("subject", subject, kLongestText).Text("signature", signature, kLongestText);
  }
  Ticks ticks(call.number(), progress, context);
  const int32_t result = call.Make(NEXT(pcInstallPenlet), penHandle, channel, file, subject, signature, reserved,
                                   ticks.Function(), ticks.Context());
  call.End(&ticks);
  return result;
}

int32_t pcSetPenletAttrib(int32_t penHandle, int32_t channel, const char* guid, const PenletAttribute* attributes,
                          int32_t count) {
  Call call("pcSetPenletAttrib", penHandle);
  if (call) {
    call.line().Number("channel", channel).Text("guid", guid, kLongestText);
    TellAttributes(call.line(), attributes, count);
  }
  const int32_t result = call.Make(NEXT(pcSetPenletAttrib), penHandle, channel, guid, attributes, count);
  call.End();
  return result;
}

int32_t pcUninstallPenlet(int32_t penHandle, int32_t channel, const char* guid) {
  Call call("pcUninstallPenlet", penHandle);
  if (call) call.line().Number("channel", channel).Text("guid", guid, kLongestText);
  const int32_t result = call.Make(NEXT(pcUninstallPenlet), penHandle, channel, guid);
  call.End();
  return result;
}

int32_t pcDfuDetach(int32_t penHandle, int32_t reserved1, int32_t reserved2) {
  Call call("pcDfuDetach", penHandle);
  if (call) call.line().Number("reserved1", reserved1).Number("reserved2", reserved2);
  const int32_t result = call.Make(NEXT(pcDfuDetach), penHandle, reserved1, reserved2);
  call.End();
  return result;
}

int32_t pcDfuDownload(int32_t penHandle, const char* file, pcProgressFunction progress, void* context,
                      int32_t reserved) {
  Call call("pcDfuDownload", penHandle);
  if (call) {
    call.line().Number("reserved", reserved).Flag("progress", progress != nullptr);
    TellFile(call.line(), file);
  }
  Ticks ticks(call.number(), progress, context);
  const int32_t result = call.Make(NEXT(pcDfuDownload), penHandle, file, ticks.Function(), ticks.Context(), reserved);
  call.End(&ticks);
  return result;
}

}  // extern "C"
