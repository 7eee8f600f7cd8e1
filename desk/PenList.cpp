#include "desk/PenList.h"

#include <fmt/format.h>
#include <stdio.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "desk/Failure.h"
#include "desk/Text.h"
#include "platform/Tessvik.h"

namespace {

constexpr int32_t kMaximumPens = 1000;      // far above any desk
constexpr int32_t kMaximumPenlets = 10000;  // far above any pen; bounds a wrong answer
constexpr int32_t kChannelTimeoutMs = 30000;

// The transfer channel to a pen, open for as long as the object lives.
class Channel {
 public:
  explicit Channel(int32_t penHandle) : m_open(pcStartObex(&m_channel, penHandle, kChannelTimeoutMs) == 0) {}
  ~Channel() {
    if (m_open) pcStopObex(m_channel);
  }
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;
  bool IsOpen() const { return m_open; }
  int32_t Number() const { return m_channel; }

 private:
  int32_t m_channel = 0;
  bool m_open;
};

Pen ReadIdentity(int32_t handle) {
  Pen pen;
  pen.handle = handle;
  uint64_t id = 0;
  std::array<char, 100> name{};
  if (pcGetPenId(handle, &id, nullptr, name.data(), static_cast<int32_t>(name.size())) == 0) {
    pen.id = id;
    pen.name = TextOfField(name.data(), name.size());
  }
  int32_t type = 0;
  if (pcGetPenType(handle, &type, 0, 0) == 0) pen.type = type & 0xffff;
  int32_t state = 0;
  if (pcGetPenState(handle, &state, 0, 0) == 0) pen.state = state;
  return pen;
}

bool RefreshPenletList(int32_t penHandle) {
  Channel channel(penHandle);
  return channel.IsOpen() && pcGetPenInfo(penHandle, channel.Number(), nullptr, 0, nullptr, nullptr) == 0 &&
         pcGetPenletInfo(penHandle, channel.Number(), nullptr, 0, nullptr, nullptr) == 0;
}

// A pen writes "12-34-080915" and "b2"; bundles compare with "8.9.15.b2".
std::string FirmwareText(const PenVersionInfo& info) {
  int first = 0;
  int second = 0;
  int third = 0;
  std::string text = TextOfField(info.firmwareVersion);
  if (sscanf(text.c_str(), "%*[0-9]-%*[0-9]-%2d%2d%2d", &first, &second, &third) != 3) return "";
  constexpr size_t longest = 49;  // the installer compares no more
  return fmt::format("{}.{}.{}.{}", first, second, third, TextOfField(info.versionSuffix)).substr(0, longest);
}

Penlet ToPenlet(const PenletInfo& info) {
  Penlet penlet;
  penlet.guid = TextOfField(info.guid);
  penlet.name = TextOfField(info.name[0] ? info.name : info.displayName, sizeof info.name);
  penlet.version = TextOfField(info.version);
  penlet.build = info.buildNumber;
  penlet.group = TextOfField(info.groupName);
  penlet.groupVersion = TextOfField(info.groupVersion);
  penlet.paper = info.firstId != 0 || info.secondId != 0;
  return penlet;
}

std::vector<Penlet> ReadPenlets(int32_t penHandle, int32_t count) {
  std::vector<Penlet> penlets;
  for (int32_t i = 0; i < std::min(count, kMaximumPenlets); ++i) {
    PenletInfo info{};
    if (pcGetPenletItem(penHandle, i, &info) == 0 && info.present != 0) penlets.push_back(ToPenlet(info));
  }
  return penlets;
}

Json ToJson(const Penlet& penlet) {
  return {{"guid", penlet.guid},
          {"name", penlet.name},
          {"version", penlet.version},
          {"build", penlet.build},
          {"group", penlet.group},
          {"groupVersion", penlet.groupVersion},
          {"kind", penlet.paper ? "paper" : "app"}};
}

std::vector<Pen> AllWithId(const std::vector<Pen>& pens) {
  std::vector<Pen> chosen;
  std::copy_if(pens.begin(), pens.end(), std::back_inserter(chosen), [](const Pen& pen) { return pen.id.has_value(); });
  if (!chosen.empty()) return chosen;
  throw Failure(ExitStatus::kPen, pens.empty() ? "No pen is connected; connect one and switch it on."
                                               : "No connected pen tells its id; `quarvel pens` shows their states.");
}

}  // namespace

std::vector<int32_t> PenHandles() {
  std::vector<int32_t> handles(kMaximumPens);
  int32_t count = pcGetPenHandles(handles.data(), kMaximumPens);
  if (count < 0) {
    throw Failure(ExitStatus::kPen, fmt::format("The pen library cannot tell which pens are connected (it answers {}); "
                                                "disconnect and reconnect them, or restart this machine.",
                                                count));
  }
  handles.resize(static_cast<size_t>(std::min(count, kMaximumPens)));
  std::erase(handles, 0);  // those that a wrong count claims
  if (count > 0 && handles.empty()) {
    throw Failure(ExitStatus::kPen,
                  fmt::format("The pen library cannot tell which pens are connected: it speaks of {} "
                              "and names none. Disconnect and reconnect them, or restart this machine.",
                              count));
  }
  return handles;
}

std::string CrowdNote(size_t pens) {
  if (pens <= kPensServed) return "";
  return fmt::format(
      "{} pens are connected. Applications are installed on all of them, {} at a time; firmware only "
      "while at most {} are connected, since no other is found again after its download.",
      pens, kPensServed, kPensServed);
}

std::vector<Pen> ConnectedPens() {
  std::vector<Pen> pens;
  for (int32_t handle : PenHandles()) pens.push_back(ReadIdentity(handle));
  return pens;
}

std::vector<Pen> SelectPens(const std::vector<uint64_t>& ids, bool all) {
  std::vector<Pen> pens = ConnectedPens();
  if (all) return AllWithId(pens);
  std::vector<Pen> chosen;
  for (uint64_t id : ids) {
    auto has = [id](const Pen& pen) { return pen.id == id; };
    if (std::any_of(chosen.begin(), chosen.end(), has)) continue;
    auto pen = std::find_if(pens.begin(), pens.end(), has);
    if (pen == pens.end()) {
      throw Failure(ExitStatus::kPen,
                    fmt::format("No pen {} is connected; `quarvel pens` lists those that are.", PenIdText(id)));
    }
    chosen.push_back(*pen);
  }
  return chosen;
}

void ReadContents(Pen& pen) {
  pen.contents.reset();
  if (!RefreshPenletList(pen.handle)) return;
  PenVersionInfo version{};
  int32_t count = 0;
  if (pcGetVersionInfo(pen.handle, &version) != 0 || pcGetPenletCount(pen.handle, &count) != 0) return;
  pen.contents = PenHoldings{FirmwareText(version), ReadPenlets(pen.handle, count)};
}

std::string StateText(const Pen& pen) {
  if (!pen.state) return "unknown";
  if (*pen.state == pcPenStateNormal) return "normal";
  if (*pen.state == pcPenStateFirmwareDownload) return "download";
  return std::to_string(*pen.state);
}

std::string IdText(const Pen& pen) {
  return pen.id ? PenIdText(*pen.id) : "(tells no id)";
}

Json ToJson(const Pen& pen) {
  Json state = nullptr;
  if (pen.state)
    state = *pen.state == pcPenStateNormal || *pen.state == pcPenStateFirmwareDownload ? Json(StateText(pen))
                                                                                       : Json(*pen.state);
  Json penlets = nullptr;
  Json firmware = nullptr;
  if (pen.contents) {
    penlets = Json::array();
    for (const Penlet& penlet : pen.contents->penlets) penlets.push_back(ToJson(penlet));
    if (!pen.contents->firmware.empty()) firmware = pen.contents->firmware;
  }
  return {{"id", pen.id ? Json(PenIdText(*pen.id)) : Json(nullptr)},
          {"handle", pen.handle},
          {"name", pen.name},
          {"type", pen.type ? Json(*pen.type) : Json(nullptr)},
          {"state", state},
          {"firmware", firmware},
          {"penlets", penlets}};
}
