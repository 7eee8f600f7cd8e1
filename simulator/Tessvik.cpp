// The nineteen functions of the pen library, over pens in files. Each is as strict as a pen: whatever a pen could not
// do is refused with an error of its own.
#include "platform/Tessvik.h"

#include <algorithm>
#include <cstring>

#include "simulator/Calls.h"
#include "simulator/Connections.h"
#include "simulator/Image.h"
#include "simulator/Problem.h"
#include "simulator/SimClock.h"
#include "simulator/Transfer.h"
#include "trace/Members.h"

namespace {

using namespace sim;

Connections& Held() {
  return Connections::Instance();
}

template <typename Value>
Value* Needed(Value* place) {
  if (!place) throw Problem(pbErrArgument);
  return place;
}

// The pen behind a handle, for something that is done over a channel.
Pen& OverChannel(Bench& bench, int32_t penHandle, int32_t channel) {
  Pen& pen = bench.OnBus(penHandle);
  if (pen.InDownloadMode()) throw Problem(pbErrDownloadMode);
  Held().CheckChannel(channel, penHandle);
  return pen;
}

// The same for a look.
PenPointer PeekOverChannel(int32_t penHandle, int32_t channel) {
  PenPointer pen = PeekOnBus(penHandle);
  if (pen->InDownloadMode()) throw Problem(pbErrDownloadMode);
  Held().CheckChannel(channel, penHandle);
  return pen;
}

int64_t UsedBy(const Pen& pen, const std::string& guid) {
  const auto found =
      std::find_if(pen.penlets.begin(), pen.penlets.end(), [&](const Penlet& penlet) { return penlet.guid == guid; });
  return found == pen.penlets.end() ? 0 : found->size;
}

// An application takes the place of the one with its GUID and keeps that one's group until new attributes are written.
void Store(Pen& pen, Penlet penlet) {
  pen.settings.freeSpace += UsedBy(pen, penlet.guid) - penlet.size;
  Penlet* old = pen.FindPenlet(penlet.guid);
  if (!old) {
    pen.penlets.push_back(std::move(penlet));
    return;
  }
  penlet.group = old->group;
  penlet.groupVersion = old->groupVersion;
  penlet.attributes = old->attributes;
  *old = std::move(penlet);
}

void WriteAttribute(Penlet& penlet, const PenletAttribute& attribute) {
  enum { kCategory = 1, kGroupName, kGroupVersion, kLocked, kPrivate, kName, kVersion };
  if (attribute.id < kCategory || attribute.id > kVersion) throw Problem(pbErrAttribute);
  if (!std::memchr(attribute.value, 0, sizeof attribute.value)) throw Problem(pbErrText);
  penlet.attributes[attribute.id] = attribute.value;
  if (attribute.id == kGroupName) penlet.group = attribute.value;
  if (attribute.id == kGroupVersion) penlet.groupVersion = attribute.value;
  if (attribute.id == kName) penlet.displayName = attribute.value;
  CheckPenlet(penlet);
}

int32_t CountHandles(int32_t* handles, int32_t capacity) {
  int32_t count = 0;
  std::vector<int32_t> found;
  for (const PenPointer& pen : PeekPens()) {
    if (pen->connected) found.push_back(pen->handle);
  }
  std::sort(found.begin(), found.end());
  for (const int32_t handle : found) {
    if (handles && count < capacity) handles[count] = handle;
    ++count;
  }
  return count;
}

void TellId(int32_t penHandle, uint64_t* penId, const int32_t* channel, char* name, int32_t nameSize) {
  const PenPointer pen = PeekOnBus(penHandle);
  if (channel) Held().CheckChannel(*channel, penHandle);
  if (pen->IsAnonymous()) throw Problem(pbErrNoId);
  *Needed(penId) = pen->reportedId;
  if (!name || nameSize <= 0) return;
  const size_t length = std::min(pen->name.size(), static_cast<size_t>(nameSize) - 1);
  std::memcpy(name, pen->name.data(), length);
  name[length] = '\0';
}

void LeaveHalf(uint64_t penId, Penlet penlet) {
  Bench bench;
  Pen* pen = bench.Find(penId);
  if (!pen) return;
  penlet.version = "0";
  Store(*pen, std::move(penlet));
  bench.Save(*pen);
}

void InstallApp(int32_t penHandle, int32_t channel, const char* file, const Progress& progress) {
  const PenPointer pen = PeekOverChannel(penHandle, channel);
  const Image image = ReadApp(file);
  if (image.penlet.size > pen->settings.freeSpace + UsedBy(*pen, image.penlet.guid)) throw Problem(pbErrSpace);
  try {
    Transfer(*pen, image.size, progress);
  } catch (const Problem&) {
    if (pen->settings.leavesHalf) LeaveHalf(pen->id, image.penlet);
    throw;
  }
  Bench bench;
  Pen& now = OverChannel(bench, penHandle, channel);
  Store(now, image.penlet);
  bench.Save(now);
}

void Download(int32_t penHandle, const char* file, const Progress& progress) {
  const PenPointer pen = PeekOnBus(penHandle);
  if (!pen->InDownloadMode()) throw Problem(pbErrNotDownloadMode);
  const Image image = ReadFirmware(file);
  Transfer(*pen, image.size, progress);
  Bench bench;
  Pen& now = bench.OnBus(penHandle);
  now.firmware = now.settings.returnsWith.empty() ? image.firmware : now.settings.returnsWith;
  now.LeaveAndReturn(Now(), "normal");
  bench.Save(now);
}

int32_t Run(const CallText& call, const std::function<void()>& body) {
  MakeLateProgressCall();
  return RunCall(call, [&] {
    body();
    return 0;
  });
}

using Arguments = std::function<void(trace::Line&)>;

int32_t Run(const char* function, int32_t penHandle, Arguments arguments, const std::function<void()>& body,
            std::function<void(trace::Line&, int32_t)> answers = nullptr) {
  return Run({function, penHandle, std::move(arguments), std::move(answers)}, body);
}

// The answer in a place that the caller gives, for a trace.
template <typename Value>
auto NumberIn(const char* name, const Value* place) {
  return [=](trace::Line& line, int32_t) { line.Number(name, *place); };
}

}  // namespace

extern "C" {

int32_t pcGetPenHandles(int32_t* handles, int32_t capacity) {
  return RunCall({"pcGetPenHandles", 0, [=](trace::Line& line) { line.Number("capacity", capacity); },
                  [=](trace::Line& line, int32_t count) { trace::TellHandles(line, handles, capacity, count); }},
                 [=] { return CountHandles(handles, capacity); });
}

int32_t pcGetPenId(int32_t penHandle, uint64_t* penId, const int32_t* channel, char* name, int32_t nameSize) {
  return Run(
      "pcGetPenId", penHandle,
      [=](trace::Line& line) {
        if (channel) line.Number("channel", *channel);
        line.Number("nameSize", nameSize);
      },
      [=] { TellId(penHandle, penId, channel, name, nameSize); },
      [=](trace::Line& line, int32_t) {
        line.Id("id", *penId);
        if (name && nameSize > 0) line.Text("name", name, static_cast<size_t>(nameSize));
      });
}

int32_t pcGetPenType(int32_t penHandle, int32_t* penType, int32_t channel, int32_t) {
  return Run(
      "pcGetPenType", penHandle, [=](trace::Line& line) { line.Number("channel", channel); },
      [=] {
        const PenPointer pen = PeekOnBus(penHandle);
        if (channel != 0) Held().CheckChannel(channel, penHandle);
        // Pens write the low 16 bits alone.
        *Needed(penType) = (*penType & ~0xffff) | pen->type;
      },
      NumberIn("type", penType));
}

int32_t pcGetPenState(int32_t penHandle, int32_t* state, int32_t channel, int32_t) {
  return Run(
      "pcGetPenState", penHandle, [=](trace::Line& line) { line.Number("channel", channel); },
      [=] {
        const bool download = PeekOnBus(penHandle)->InDownloadMode();
        if (channel != 0) Held().CheckChannel(channel, penHandle);
        *Needed(state) = download ? pcPenStateFirmwareDownload : pcPenStateNormal;
      },
      NumberIn("state", state));
}

int32_t pcGetPenInfo(int32_t penHandle, int32_t channel, void* buffer, int32_t bufferSize, pcProgressFunction progress,
                     void*) {
  return Run(
      "pcGetPenInfo", penHandle,
      [=](trace::Line& line) { trace::TellTransfer(line, channel, buffer, bufferSize, progress); },
      [=] { Held().KeepVersion(penHandle, ToVersionInfo(*PeekOverChannel(penHandle, channel))); });
}

int32_t pcGetVersionInfo(int32_t penHandle, PenVersionInfo* info) {
  return Run(
      "pcGetVersionInfo", penHandle, nullptr,
      [=] {
        PeekOnBus(penHandle);
        *Needed(info) = Held().Version(penHandle);
      },
      [=](trace::Line& line, int32_t) { trace::TellVersion(line, *info); });
}

uint32_t pcEnumeratePen(int32_t penHandle) {
  // 0 for a pen that is new, 1 for one that is known.
  const int32_t result = RunCall({"pcEnumeratePen", penHandle, nullptr}, [=] {
    PeekOnBus(penHandle);
    return Held().Enumerate(penHandle) ? 0 : 1;
  });
  return static_cast<uint32_t>(result);
}

int32_t pcRegisterVolatile(const char* name, uint64_t penId) {
  const auto arguments = [=](trace::Line& line) { line.Text("name", name, trace::kLongestText).Id("id", penId); };
  return Run({"pcRegisterVolatile", 0, arguments, nullptr, penId}, [=] { Held().Mark(Needed(name), penId); });
}

int32_t pcUnRegisterVolatile(const char* name, uint64_t penId) {
  const auto arguments = [=](trace::Line& line) { line.Text("name", name, trace::kLongestText).Id("id", penId); };
  return Run({"pcUnRegisterVolatile", 0, arguments, nullptr, penId}, [=] { Held().Unmark(Needed(name), penId); });
}

int32_t pcStartObex(int32_t* channel, int32_t penHandle, int32_t timeoutMs) {
  return Run(
      "pcStartObex", penHandle, [=](trace::Line& line) { line.Number("timeout", timeoutMs); },
      [=] {
        const PenPointer pen = PeekOnBus(penHandle);
        if (pen->InDownloadMode()) throw Problem(pbErrDownloadMode);
        if (timeoutMs <= 0) throw Problem(pbErrArgument);
        *Needed(channel) = Held().OpenChannel(*pen);
      },
      NumberIn("channel", channel));
}

int32_t pcStopObex(int32_t channel) {
  const auto arguments = [=](trace::Line& line) { line.Number("channel", channel); };
  return Run({"pcStopObex", 0, arguments, nullptr, 0, channel}, [=] { Held().CloseChannel(channel); });
}

int32_t pcGetPenletInfo(int32_t penHandle, int32_t channel, void* buffer, int32_t bufferSize,
                        pcProgressFunction progress, void*) {
  return Run(
      "pcGetPenletInfo", penHandle,
      [=](trace::Line& line) { trace::TellTransfer(line, channel, buffer, bufferSize, progress); },
      [=] { Held().KeepPenlets(*PeekOverChannel(penHandle, channel)); });
}

int32_t pcGetPenletCount(int32_t penHandle, int32_t* count) {
  return Run(
      "pcGetPenletCount", penHandle, nullptr,
      [=] {
        PeekOnBus(penHandle);
        *Needed(count) = Held().PenletCount(penHandle);
      },
      NumberIn("count", count));
}

int32_t pcGetPenletItem(int32_t penHandle, int32_t index, PenletInfo* item) {
  return Run(
      "pcGetPenletItem", penHandle, [=](trace::Line& line) { line.Number("index", index); },
      [=] {
        PeekOnBus(penHandle);
        *Needed(item) = Held().PenletItem(penHandle, index);
      },
      [=](trace::Line& line, int32_t) { trace::TellItem(line, *item); });
}

int32_t pcInstallPenlet(int32_t penHandle, int32_t channel, const char* file, const char* subject,
                        const char* signature, int32_t, pcProgressFunction progress, void* context) {
  const auto arguments = [=](trace::Line& line) {
    line.Number("channel", channel).Flag("progress", progress != nullptr);
    trace::TellFile(line, file);
    line.Text("subject", subject, trace::kLongestText).Text("signature", signature, trace::kLongestText);
  };
  return Run("pcInstallPenlet", penHandle, arguments, [=] {
    InstallApp(penHandle, channel, Needed(file), {progress, context});
  });
}

int32_t pcSetPenletAttrib(int32_t penHandle, int32_t channel, const char* guid, const PenletAttribute* attributes,
                          int32_t count) {
  const auto arguments = [=](trace::Line& line) {
    line.Number("channel", channel).Text("guid", guid, trace::kLongestText);
    trace::TellAttributes(line, attributes, count);
  };
  return Run("pcSetPenletAttrib", penHandle, arguments, [=] {
    Bench bench;
    Pen& pen = OverChannel(bench, penHandle, channel);
    const std::string wanted = Needed(guid);
    if (wanted.empty() || wanted.size() >= sizeof PenletInfo::guid) throw Problem(pbErrGuid);
    Penlet* penlet = pen.FindPenlet(wanted);
    if (!penlet) throw Problem(pbErrNoPenlet);
    if (pen.settings.refusesAttributes) throw Problem(pbErrRefused);
    if (count < 0 || (count > 0 && !attributes)) throw Problem(pbErrArgument);
    Penlet changed = *penlet;
    for (int32_t i = 0; i < count; ++i) WriteAttribute(changed, attributes[i]);
    *penlet = changed;
    bench.Save(pen);
  });
}

int32_t pcUninstallPenlet(int32_t penHandle, int32_t channel, const char* guid) {
  const auto arguments = [=](trace::Line& line) {
    line.Number("channel", channel).Text("guid", guid, trace::kLongestText);
  };
  return Run("pcUninstallPenlet", penHandle, arguments, [=] {
    Bench bench;
    Pen& pen = OverChannel(bench, penHandle, channel);
    const Penlet* penlet = pen.FindPenlet(Needed(guid));
    if (!penlet) throw Problem(pbErrNoPenlet);
    pen.settings.freeSpace += penlet->size;
    pen.penlets.erase(pen.penlets.begin() + (penlet - pen.penlets.data()));
    bench.Save(pen);
  });
}

int32_t pcDfuDetach(int32_t penHandle, int32_t, int32_t) {
  return Run("pcDfuDetach", penHandle, nullptr, [=] {
    Bench bench;
    Pen& pen = bench.OnBus(penHandle);
    if (pen.InDownloadMode()) throw Problem(pbErrDownloadMode);
    pen.LeaveAndReturn(Now(), "download");
    bench.Save(pen);
  });
}

int32_t pcDfuDownload(int32_t penHandle, const char* file, pcProgressFunction progress, void* context, int32_t) {
  return Run(
      "pcDfuDownload", penHandle,
      [=](trace::Line& line) {
        line.Flag("progress", progress != nullptr);
        trace::TellFile(line, file);
      },
      [=] {
        Download(penHandle, Needed(file), {progress, context});
      });
}

}  // extern "C"
