#include "simulator/tool/Player.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "simulator/PenBench.h"
#include "simulator/tool/Answers.h"

namespace simtool {
namespace {

namespace fs = std::filesystem;
using trace::Recorded;

constexpr int32_t kNoPen = 1 << 30;  // a handle that no pen of today has

std::string PenFile(uint64_t id) {
  std::string text(static_cast<size_t>(pbShowPen(id, nullptr, 0)) + 1, '\0');
  pbShowPen(id, text.data(), static_cast<int32_t>(text.size()));
  return text.c_str();
}

void Require(int32_t error) {
  if (error == 0) return;
  std::string problem(1000, '\0');
  pbLastProblem(problem.data(), static_cast<int32_t>(problem.size()));
  throw std::invalid_argument(fmt::format("the pens cannot be built: {}", problem.c_str()));
}

// Bytes that are no UTF-8 become replacement characters: a pen's file is JSON.
std::string PlainText(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

// The host's progress function: it asks to stop where it did.
struct Player::Watch {
  uint64_t stopAt = UINT64_MAX;
  int32_t answer = 0;
  uint64_t total = 0;
  uint64_t done = 0;

  explicit Watch(const Recorded& call) {
    for (const trace::Tick& tick : call.ticks) {
      if (tick.answer == 0 || answer != 0) continue;
      stopAt = tick.done;
      answer = tick.answer;
    }
  }
  static int32_t OnTick(int32_t, uint64_t total, uint64_t done, void* context) {
    auto& watch = *static_cast<Watch*>(context);
    watch.total = total;
    watch.done = done;
    return done >= watch.stopAt ? watch.answer : 0;
  }
};

Player::Player(const trace::Recording& recording, SeenPens& seen, fs::path folder)
    : m_calls(recording.calls), m_recording(recording), m_seen(seen), m_folder(std::move(folder)) {}

Player::~Player() {
  pbReset();
  pbSetFolder(nullptr);
}

int32_t Player::Hook(void* context, int32_t, const char* function, int32_t) {
  auto& player = *static_cast<Player*>(context);
  ChosenFault& chosen = player.m_chosen;
  if (chosen.function == function && (++player.m_chosenSeen == chosen.call || chosen.call == 0)) return chosen.error;
  return 0;
}

std::vector<Played> Player::Play() {
  for (size_t i = 0; i < m_calls.size(); ++i) {
    if (!m_givesNone && MustBeGiven(m_calls[i])) m_given.insert(i);
  }
  std::vector<Played> played;
  for (int round = 1; !PlayOnce(played); ++round) BuildPens(round);
  return played;
}

// False when a failure was found that has to be given to the pens before all is played again.
bool Player::PlayOnce(std::vector<Played>& played) {
  if (!fs::exists(m_folder / "pens")) BuildPens(0);
  played.clear();
  for (size_t i = 0; i < m_calls.size(); ++i) {
    const Recorded& call = m_calls[i];
    if (!call.hasEnded || call.within != 0) continue;
    m_now = std::max(m_now, (call.time + call.took) / 1000);
    MoveBus(i);
    played.push_back(PlayCall(i));
    const bool isGivable = HasFailed(call) && !HasFailed(call.function, played.back().result);
    if (isGivable && !m_givesNone && m_given.insert(i).second) return false;
    Release(i);
  }
  return true;
}

void Player::BuildPens(int round) {
  const fs::path pens = m_folder / "pens";
  fs::remove_all(pens);
  fs::create_directories(pens);
  pbReset();
  m_chosenSeen = 0;
  m_pens.clear();
  m_channels.clear();
  m_channelOwners.clear();
  m_markOwners.clear();
  m_now = m_calls.empty() ? 0 : m_calls.front().time / 1000;
  // No two rounds share a handle.
  std::ofstream(pens / "bench.state") << Json{{"nextHandle", 1 + round * 1000}}.dump();
  Require(pbSetFolder(pens.c_str()));
  pbSetClock([](void* now) { return *static_cast<int64_t*>(now); },
             [](void* now, int64_t milliseconds) { *static_cast<int64_t*>(now) += milliseconds; }, &m_now);
  pbSetHook(Hook, this);
  for (const SeenPen& seen : m_seen.pens()) {
    Json pen = seen.file;
    pen["connected"] = false;
    pen["settings"]["never-leaves"] = true;  // the recording says when it leaves
    Require(pbAddPen(PlainText(pen).c_str()));
  }
}

// Lets pens go and come that the call is the first to show gone or there.
void Player::MoveBus(size_t call) {
  for (const SeenPen& pen : m_seen.pens()) {
    for (const Stay& stay : pen.stays) {
      if (stay.until == call) Require(pbUnplug(pen.id));
    }
  }
  for (const SeenPen& pen : m_seen.pens()) {
    for (const Stay& stay : pen.stays) {
      if (stay.from != call) continue;
      Require(pbSet(pen.id, "starts-in-download", stay.inDownloadMode ? "true" : "false"));
      Require(pbPlug(pen.id));
      m_pens[stay.handle] = Json::parse(PenFile(pen.id)).at("handle");
    }
  }
}

// After a process's last call the system has taken back what it still held.
void Player::Release(size_t call) {
  const int64_t process = m_calls[call].process;
  for (size_t i = call + 1; i < m_calls.size(); ++i) {
    if (m_calls[i].process == process && m_calls[i].hasEnded) return;
  }
  std::erase_if(m_channelOwners, [&](const auto& entry) {
    if (entry.second == process) pcStopObex(m_channels[entry.first]);
    return entry.second == process;
  });
  std::erase_if(m_markOwners, [&](const auto& entry) {
    if (entry.second == process) pcUnRegisterVolatile(entry.first.first.c_str(), m_seen.IdFor(entry.first.second));
    return entry.second == process;
  });
}

bool Player::IsOwnNumber(const Recorded& call) const {
  return m_recording.HasSimulatedPens(call.process) && *pbErrorText(static_cast<int32_t>(call.result)) != '\0' &&
         std::string(pbErrorText(static_cast<int32_t>(call.result))) != "unknown error";
}

// A failure whose number the simulated pens do not have is one that they must be given, and a count of pens that no
// list goes with; whether they have the others by themselves is found by playing.
bool Player::MustBeGiven(const Recorded& call) const {
  if (call.hasEnded && call.function == "pcGetPenHandles") {
    return call.result < 0 || call.result > call.in.value("capacity", Json(0)).get<int64_t>();
  }
  return call.hasEnded && HasFailed(call) && !IsOwnNumber(call);
}

Played Player::PlayCall(size_t index) {
  const Recorded& call = m_calls[index];
  Played played;
  played.call = index;
  played.isGiven = m_given.contains(index);
  if (played.isGiven) {  // the pen does nothing but fail
    played.result = call.result;
    return played;
  }
  Json out = Json::object();
  played.result = Make(index, out);
  played.difference = Compare(call, played, out);
  return played;
}

std::string Player::Compare(const Recorded& call, const Played& played, const Json& out) {
  const bool isSameLibrary = m_recording.HasSimulatedPens(call.process);
  return DifferenceOf(call, played.result, out, isSameLibrary);
}

int32_t Player::Pen(int32_t recorded) const {
  if (recorded == 0) return 0;
  const auto found = m_pens.find(recorded);
  return found == m_pens.end() ? kNoPen : found->second;
}

// One that was never opened, or not today, stays the recorded number, which then is no channel today either.
int32_t Player::Channel(const Recorded& call) const {
  const int64_t recorded = call.in.value("channel", Json(0));
  const auto found = m_channels.find(recorded);
  return found == m_channels.end() ? static_cast<int32_t>(recorded) : found->second;
}

// A file like the one that was sent; the name of one that is not there when none was.
std::string Player::FileFor(size_t call) {
  const std::string name = (m_folder / fmt::format("file-{}", call)).string();
  const Recorded& recorded = m_calls[call];
  if (!m_seen.PenAt(recorded.pen, call)) return name;
  const SeenFile& file = m_seen.FileOf(call);
  if (file.bytes < 0) return name;
  std::string text;
  for (const std::string& line : file.head) text += line + "\n";
  text += "\n";
  std::ofstream(name, std::ios::binary | std::ios::trunc) << text;
  if (file.bytes > static_cast<int64_t>(text.size())) fs::resize_file(name, static_cast<uint64_t>(file.bytes));
  return name;
}

int64_t Player::Make(size_t index, Json& out) {
  const Recorded& call = m_calls[index];
  const std::string& function = call.function;
  static const std::set<std::string> changes = {"pcInstallPenlet", "pcSetPenletAttrib", "pcUninstallPenlet",
                                                "pcDfuDetach", "pcDfuDownload"};
  if (changes.contains(function)) return MakeChange(index, out);
  static const std::set<std::string> readings = {"pcGetPenInfo",     "pcGetVersionInfo", "pcGetPenletInfo",
                                                 "pcGetPenletCount", "pcGetPenletItem",  "pcStartObex",
                                                 "pcStopObex"};
  return readings.contains(function) ? MakeReading(call, out) : MakeLook(call, out);
}

int64_t Player::MakeLook(const Recorded& call, Json& out) {
  const std::string& function = call.function;
  const int32_t pen = Pen(call.pen);
  int32_t number = 0;
  if (function == "pcGetPenHandles") return GetHandles(call, out);
  if (function == "pcGetPenId") return GetId(call, out);
  if (function == "pcEnumeratePen") return static_cast<int32_t>(pcEnumeratePen(pen));
  const bool isType = function == "pcGetPenType";
  if (isType || function == "pcGetPenState") {
    int32_t* place = call.in.contains(isType ? "type" : "state") ? nullptr : &number;
    const int32_t result =
        isType ? pcGetPenType(pen, place, Channel(call), 0) : pcGetPenState(pen, place, Channel(call), 0);
    out[isType ? "type" : "state"] = number;
    return result;
  }
  const std::string name = trace::TextOf(call.in, "name");
  const std::string told = trace::TextOf(call.in, "id");
  const char* given = call.in.value("name", Json()).is_null() ? nullptr : name.c_str();
  int32_t result = 0;
  if (function == "pcRegisterVolatile") {
    result = pcRegisterVolatile(given, m_seen.IdFor(told));
    if (result == 0) m_markOwners[{name, told}] = call.process;
  } else if (function == "pcUnRegisterVolatile") {
    result = pcUnRegisterVolatile(given, m_seen.IdFor(told));
    if (result == 0) m_markOwners.erase({name, told});
  } else {
    throw std::invalid_argument(fmt::format("the trace calls {}, which is no pen function", function));
  }
  return result;
}

int64_t Player::GetHandles(const Recorded& call, Json& out) {
  constexpr int32_t most = 256;
  const int32_t capacity = std::clamp(call.in.value("capacity", Json(0)).get<int32_t>(), 0, most);
  std::vector<int32_t> handles(most);
  const int32_t count = pcGetPenHandles(call.in.contains("handles") ? nullptr : handles.data(), capacity);
  Json recorded = Json::array();
  for (int32_t i = 0; i < std::min(count, capacity); ++i) {
    const auto found = std::find_if(m_pens.begin(), m_pens.end(),
                                    [&](const auto& entry) { return entry.second == handles[static_cast<size_t>(i)]; });
    recorded.push_back(found == m_pens.end() ? -1 : found->first);
  }
  std::sort(recorded.begin(), recorded.end());
  out["handles"] = recorded;
  return count;
}

int64_t Player::GetId(const Recorded& call, Json& out) {
  uint64_t id = 0;
  std::vector<char> name(static_cast<size_t>(std::clamp(call.in.value("nameSize", Json(0)).get<int32_t>(), 0, 65536)) +
                         1);
  const int32_t channel = Channel(call);
  const int32_t result = pcGetPenId(
      Pen(call.pen), call.in.contains("id") ? nullptr : &id, call.in.contains("channel") ? &channel : nullptr,
      call.in.contains("name") ? nullptr : name.data(), static_cast<int32_t>(name.size()) - 1);
  out["id"] = m_seen.ToldId(id);
  if (call.out.contains("name")) out["name"] = std::string(name.data());
  return result;
}

int64_t Player::StartObex(const Recorded& call, Json& out) {
  int32_t channel = 0;
  const int32_t result =
      pcStartObex(call.in.contains("channel") ? nullptr : &channel, Pen(call.pen), call.in.value("timeout", Json(0)));
  if (result != 0) return result;
  const int64_t recorded = call.out.value("channel", Json(0));
  if (!HasFailed(call)) {
    m_channels[recorded] = channel;
    m_channelOwners[recorded] = call.process;
    out["channel"] = recorded;
  }
  return result;
}

int64_t Player::MakeReading(const Recorded& call, Json& out) {
  const std::string& function = call.function;
  const int32_t pen = Pen(call.pen);
  if (function == "pcStartObex") return StartObex(call, out);
  if (function == "pcStopObex") {
    const int32_t result = pcStopObex(Channel(call));
    if (result == 0) m_channelOwners.erase(call.in.value("channel", Json(0)).get<int64_t>());
    return result;
  }
  if (function == "pcGetPenInfo") return pcGetPenInfo(pen, Channel(call), nullptr, 0, nullptr, nullptr);
  if (function == "pcGetPenletInfo") return pcGetPenletInfo(pen, Channel(call), nullptr, 0, nullptr, nullptr);
  if (function == "pcGetVersionInfo") {
    PenVersionInfo info{};
    const int32_t result = pcGetVersionInfo(pen, call.in.contains("info") ? nullptr : &info);
    out = VersionAnswers(info);
    return result;
  }
  if (function == "pcGetPenletCount") {
    int32_t count = 0;
    const int32_t result = pcGetPenletCount(pen, call.in.contains("count") ? nullptr : &count);
    out["count"] = count;
    return result;
  }
  PenletInfo item{};
  const int32_t result =
      pcGetPenletItem(pen, call.in.value("index", Json(0)), call.in.contains("item") ? nullptr : &item);
  out = ItemAnswers(item);
  return result;
}

int64_t Player::SetAttributes(const Recorded& call) {
  std::vector<PenletAttribute> attributes;
  for (const Json& recorded : call.in.value("attributes", Json::array())) {
    PenletAttribute& attribute = attributes.emplace_back();
    attribute.id = recorded.value("number", Json(0));
    const std::string value = trace::TextOf(recorded, "value");
    value.copy(attribute.value, sizeof attribute.value);
  }
  const std::string guid = trace::TextOf(call.in, "guid");
  const bool hasGuid = call.in.value("guid", Json()).is_string();
  const auto count = static_cast<int32_t>(attributes.size());
  return pcSetPenletAttrib(Pen(call.pen), Channel(call), hasGuid ? guid.c_str() : nullptr, attributes.data(),
                           std::min(call.in.value("count", Json(count)).get<int32_t>(), count));
}

int64_t Player::MakeChange(size_t index, Json& out) {
  const Recorded& call = m_calls[index];
  const std::string& function = call.function;
  const int32_t pen = Pen(call.pen);
  if (function == "pcSetPenletAttrib") return SetAttributes(call);
  if (function == "pcDfuDetach") return pcDfuDetach(pen, 0, 0);
  if (function == "pcUninstallPenlet") {
    const std::string guid = trace::TextOf(call.in, "guid");
    return pcUninstallPenlet(pen, Channel(call), call.in.value("guid", Json()).is_string() ? guid.c_str() : nullptr);
  }
  Watch watch(call);
  const pcProgressFunction progress = call.in.value("progress", Json(true)) == Json(true) ? Watch::OnTick : nullptr;
  const std::string file = FileFor(index);
  const char* given = call.in.value("file", Json()).is_string() ? file.c_str() : nullptr;
  const int32_t result = function == "pcInstallPenlet"
                             ? pcInstallPenlet(pen, Channel(call), given, "", "", 0, progress, &watch)
                             : pcDfuDownload(pen, given, progress, &watch, 0);
  if (call.summary.contains("total")) out = {{"total", watch.total}, {"done", watch.done}};
  std::error_code ignored;
  fs::remove(file, ignored);
  return result;
}

}  // namespace simtool
