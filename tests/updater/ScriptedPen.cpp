#include "tests/updater/ScriptedPen.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr int32_t kNoSuchPen = 9;

ScriptedPen* g_pen = nullptr;

std::string NameOf(const char* file) {
  const std::string path = file;
  return path.substr(path.rfind('/') + 1);
}

template <size_t kSize>
void Fill(char (&field)[kSize], const std::string& text) {
  memcpy(field, text.data(), std::min(text.size(), kSize));
}

// A function about a pen: its answer, or what it comes to when there is no pen under the handle.
int32_t AboutPen(const char* function, int32_t handle, const std::string& arguments,
                 const std::function<int32_t(const PenFacts&, const ScriptedAnswer&)>& body = {}) {
  const auto found = g_pen->pens.find(handle);
  const std::optional<PenFacts> pen = found == g_pen->pens.end() ? std::nullopt : std::optional(found->second);
  const ScriptedAnswer answer = g_pen->Note(function, fmt::format("{}{}", handle, arguments));
  if (answer.result != 0) return answer.result;
  if (!pen) return kNoSuchPen;
  return body ? body(*pen, answer) : 0;
}

}  // namespace

PenletInfo MakePenlet(const PenletFacts& facts) {
  PenletInfo penlet{};
  penlet.firstId = facts.firstId;
  penlet.secondId = facts.secondId;
  penlet.present = facts.present;
  Fill(penlet.name, std::string("name of ") + facts.guid);
  Fill(penlet.displayName, std::string("title of ") + facts.guid);
  Fill(penlet.guid, facts.guid);
  Fill(penlet.version, facts.version);
  Fill(penlet.groupName, facts.group);
  Fill(penlet.groupVersion, facts.groupVersion);
  return penlet;
}

ScriptedPen::ScriptedPen() {
  g_pen = this;
}

ScriptedPen::~ScriptedPen() {
  g_pen = nullptr;
}

void ScriptedPen::Answer(const std::string& function, int number, const ScriptedAnswer& answer) {
  auto& queue = answers[function];
  queue.resize(std::max(queue.size(), static_cast<size_t>(number)));
  queue[static_cast<size_t>(number) - 1] = answer;
}

std::vector<std::string> ScriptedPen::Calls(const std::string& function) const {
  std::vector<std::string> calls;
  for (const std::string& call : m_calls) {
    if (call.starts_with(function.empty() ? "" : function + "(")) calls.push_back(call);
  }
  return calls;
}

ScriptedAnswer ScriptedPen::Note(const std::string& function, const std::string& arguments) {
  m_calls.push_back(function + "(" + arguments + ")");
  auto& queue = answers[function];
  if (queue.empty()) return {};
  const ScriptedAnswer answer = queue.front();
  queue.pop_front();
  if (answer.deed) answer.deed();
  return answer;
}

int32_t ScriptedPen::Transfer(const std::string& function, const std::string& arguments, pcProgressFunction given,
                              void* with) {
  progress = given;
  context = with;
  return Note(function, arguments).result;
}

int32_t pcGetPenHandles(int32_t* handles, int32_t capacity) {
  const ScriptedAnswer answer = g_pen->Note("pcGetPenHandles", std::to_string(capacity));
  int32_t count = 0;
  for (const auto& pen : g_pen->pens) {
    if (count < capacity) handles[count++] = pen.first;
  }
  return answer.value.value_or(count);
}

int32_t pcGetPenId(int32_t penHandle, uint64_t* penId, const int32_t* channel, char* name, int32_t nameSize) {
  const std::string over = channel ? fmt::format(", channel {}", *channel) : "";
  return AboutPen("pcGetPenId", penHandle, over + (nameSize ? fmt::format(", name {}", nameSize) : ""),
                  [&](const PenFacts& pen, const ScriptedAnswer&) {
                    *penId = pen.id;
                    if (name) std::fill_n(name, nameSize, 'n');  // a name that fills its field
                    return pen.id == 0 ? kNoSuchPen : 0;
                  });
}

int32_t pcGetPenType(int32_t penHandle, int32_t* penType, int32_t channel, int32_t reserved) {
  return AboutPen("pcGetPenType", penHandle, fmt::format(", {}, {}", channel, reserved),
                  [&](const PenFacts& pen, const ScriptedAnswer& answer) {
                    *penType = answer.value.value_or(pen.type);
                    return 0;
                  });
}

int32_t pcGetPenState(int32_t penHandle, int32_t* state, int32_t channel, int32_t reserved) {
  return AboutPen("pcGetPenState", penHandle, fmt::format(", {}, {}", channel, reserved),
                  [&](const PenFacts& pen, const ScriptedAnswer& answer) {
                    *state = answer.value.value_or(pen.state);
                    return 0;
                  });
}

int32_t pcGetPenInfo(int32_t penHandle, int32_t channel, void* buffer, int32_t bufferSize, pcProgressFunction progress,
                     void* context) {
  EXPECT_TRUE(!buffer && bufferSize == 0 && !progress && !context);
  return AboutPen("pcGetPenInfo", penHandle, fmt::format(", {}", channel));
}

int32_t pcGetVersionInfo(int32_t penHandle, PenVersionInfo* info) {
  return AboutPen("pcGetVersionInfo", penHandle, "", [&](const PenFacts&, const ScriptedAnswer&) {
    Fill(info->firmwareVersion, g_pen->firmware);
    Fill(info->versionSuffix, g_pen->suffix);
    return 0;
  });
}

uint32_t pcEnumeratePen(int32_t penHandle) {
  return static_cast<uint32_t>(AboutPen("pcEnumeratePen", penHandle, ""));
}

int32_t pcRegisterVolatile(const char* name, uint64_t penId) {
  return g_pen->Note("pcRegisterVolatile", fmt::format("{}, {}", name, penId)).result;
}

int32_t pcUnRegisterVolatile(const char* name, uint64_t penId) {
  return g_pen->Note("pcUnRegisterVolatile", fmt::format("{}, {}", name, penId)).result;
}

int32_t pcStartObex(int32_t* channel, int32_t penHandle, int32_t timeoutMs) {
  return AboutPen("pcStartObex", penHandle, fmt::format(", {}", timeoutMs),
                  [&](const PenFacts&, const ScriptedAnswer&) {
                    *channel = ScriptedPen::kChannel;
                    return 0;
                  });
}

int32_t pcStopObex(int32_t channel) {
  return g_pen->Note("pcStopObex", std::to_string(channel)).result;
}

int32_t pcGetPenletInfo(int32_t penHandle, int32_t channel, void* buffer, int32_t bufferSize,
                        pcProgressFunction progress, void* context) {
  EXPECT_TRUE(!buffer && bufferSize == 0 && !progress && !context);
  return AboutPen("pcGetPenletInfo", penHandle, fmt::format(", {}", channel));
}

int32_t pcGetPenletCount(int32_t penHandle, int32_t* count) {
  return AboutPen("pcGetPenletCount", penHandle, "", [&](const PenFacts&, const ScriptedAnswer& answer) {
    *count = answer.value.value_or(static_cast<int32_t>(g_pen->penlets.size()));
    return 0;
  });
}

int32_t pcGetPenletItem(int32_t penHandle, int32_t index, PenletInfo* item) {
  return AboutPen("pcGetPenletItem", penHandle, fmt::format(", {}", index),
                  [&](const PenFacts&, const ScriptedAnswer&) {
                    if (index < 0 || static_cast<size_t>(index) >= g_pen->penlets.size()) return kNoSuchPen;
                    EXPECT_EQ(item->present, 0) << "the record was not zeroed";
                    *item = g_pen->penlets[static_cast<size_t>(index)];
                    return 0;
                  });
}

int32_t pcInstallPenlet(int32_t penHandle, int32_t channel, const char* file, const char* subject,
                        const char* signature, int32_t reserved, pcProgressFunction progress, void* context) {
  return g_pen->Transfer(
      "pcInstallPenlet",
      fmt::format("{}, {}, {}, {}, {}, {}", penHandle, channel, NameOf(file), subject, signature, reserved), progress,
      context);
}

int32_t pcSetPenletAttrib(int32_t penHandle, int32_t channel, const char* guid, const PenletAttribute* attributes,
                          int32_t count) {
  std::string text;
  for (int32_t i = 0; i < count; ++i) text += fmt::format(" {}={}", attributes[i].id, attributes[i].value);
  return AboutPen("pcSetPenletAttrib", penHandle, fmt::format(", {}, {}:{}", channel, guid, text));
}

int32_t pcUninstallPenlet(int32_t penHandle, int32_t channel, const char* guid) {
  return AboutPen("pcUninstallPenlet", penHandle, fmt::format(", {}, {}", channel, guid));
}

int32_t pcDfuDetach(int32_t penHandle, int32_t reserved1, int32_t reserved2) {
  return AboutPen("pcDfuDetach", penHandle, fmt::format(", {}, {}", reserved1, reserved2));
}

int32_t pcDfuDownload(int32_t penHandle, const char* file, pcProgressFunction progress, void* context,
                      int32_t reserved) {
  return g_pen->Transfer("pcDfuDownload", fmt::format("{}, {}, {}", penHandle, NameOf(file), reserved), progress,
                         context);
}
