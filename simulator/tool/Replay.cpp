// A trace made again: the same calls in the same order on the pens as they are now, with handles and channels of today
// in place of the recorded ones.
#include <fmt/format.h>

#include <array>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>

#include "platform/Tessvik.h"
#include "simulator/PenBench.h"
#include "simulator/tool/Commands.h"

namespace simtool {
namespace {

// What the recorded handles and channels are today.
class Numbers {
 public:
  int32_t Pen(int32_t recorded) {
    if (recorded == 0) return 0;
    const auto found = m_pens.find(recorded);
    if (found != m_pens.end()) return found->second;
    return m_pens[recorded] = NextHandle();
  }

  // One that was never opened, or not today, stays the recorded number, which then is no channel today either.
  int32_t Channel(const Json& arguments) const {
    const int32_t recorded = arguments.at("channel");
    const auto found = m_channels.find(recorded);
    return found == m_channels.end() ? recorded : found->second;
  }
  void SetChannel(const Json& arguments, int32_t today) { m_channels[arguments.at("channel")] = today; }

 private:
  // The connected pen's handle that no recorded one stands for yet; recorded handles count up as the real ones do.
  int32_t NextHandle() {
    std::array<int32_t, 64> handles{};
    const int32_t count = pcGetPenHandles(handles.data(), static_cast<int32_t>(handles.size()));
    for (int32_t i = 0; i < std::min(count, static_cast<int32_t>(handles.size())); ++i) {
      if (handles[static_cast<size_t>(i)] > m_last) return m_last = handles[static_cast<size_t>(i)];
    }
    return m_last;
  }

  int32_t m_last = 0;
  std::map<int32_t, int32_t> m_pens;
  std::map<int32_t, int32_t> m_channels;
};

std::vector<PenletAttribute> Attributes(const Json& arguments) {
  std::vector<PenletAttribute> attributes;
  for (const auto& item : arguments.at("attributes").items()) {
    PenletAttribute attribute{};
    attribute.id = std::stoi(item.key());
    const std::string value = item.value();
    value.copy(attribute.value, sizeof attribute.value - 1);
    attributes.push_back(attribute);
  }
  return attributes;
}

uint64_t IdOf(const Json& arguments) {
  return std::stoull(arguments.at("id").get<std::string>(), nullptr, 0);
}

using Player = std::function<int32_t(int32_t pen, const Json& arguments, Numbers& numbers)>;

const std::map<std::string, Player>& Players() {
  static const std::map<std::string, Player> players = {
      {"pcGetPenHandles",
       [](int32_t, const Json& a, Numbers&) {
         std::array<int32_t, 64> handles{};
         return pcGetPenHandles(handles.data(), std::min(a.at("capacity").get<int32_t>(), 64));
       }},
      {"pcGetPenId",
       [](int32_t pen, const Json&, Numbers&) {
         uint64_t id = 0;
         return pcGetPenId(pen, &id, nullptr, nullptr, 0);
       }},
      {"pcGetPenType",
       [](int32_t pen, const Json&, Numbers&) {
         int32_t type = 0;
         return pcGetPenType(pen, &type, 0, 0);
       }},
      {"pcGetPenState",
       [](int32_t pen, const Json&, Numbers&) {
         int32_t state = 0;
         return pcGetPenState(pen, &state, 0, 0);
       }},
      {"pcGetPenInfo", [](int32_t pen, const Json& a,
                          Numbers& n) { return pcGetPenInfo(pen, n.Channel(a), nullptr, 0, nullptr, nullptr); }},
      {"pcGetVersionInfo",
       [](int32_t pen, const Json&, Numbers&) {
         PenVersionInfo info{};
         return pcGetVersionInfo(pen, &info);
       }},
      {"pcEnumeratePen", [](int32_t pen, const Json&, Numbers&) { return static_cast<int32_t>(pcEnumeratePen(pen)); }},
      {"pcRegisterVolatile",
       [](int32_t, const Json& a, Numbers&) {
         return pcRegisterVolatile(a.at("name").get<std::string>().c_str(), IdOf(a));
       }},
      {"pcUnRegisterVolatile",
       [](int32_t, const Json& a, Numbers&) {
         return pcUnRegisterVolatile(a.at("name").get<std::string>().c_str(), IdOf(a));
       }},
      {"pcStartObex",
       [](int32_t pen, const Json& a, Numbers& n) {
         int32_t channel = 0;
         const int32_t result = pcStartObex(&channel, pen, a.at("timeout"));
         if (result == 0) n.SetChannel(a, channel);
         return result;
       }},
      {"pcStopObex", [](int32_t, const Json& a, Numbers& n) { return pcStopObex(n.Channel(a)); }},
      {"pcGetPenletInfo", [](int32_t pen, const Json& a,
                             Numbers& n) { return pcGetPenletInfo(pen, n.Channel(a), nullptr, 0, nullptr, nullptr); }},
      {"pcGetPenletCount",
       [](int32_t pen, const Json&, Numbers&) {
         int32_t count = 0;
         return pcGetPenletCount(pen, &count);
       }},
      {"pcGetPenletItem",
       [](int32_t pen, const Json& a, Numbers&) {
         PenletInfo item{};
         return pcGetPenletItem(pen, a.at("index"), &item);
       }},
      {"pcInstallPenlet",
       [](int32_t pen, const Json& a, Numbers& n) {
         return pcInstallPenlet(pen, n.Channel(a), a.at("file").get<std::string>().c_str(),
                                a.at("subject").get<std::string>().c_str(),
                                a.at("signature").get<std::string>().c_str(), 0, nullptr, nullptr);
       }},
      {"pcSetPenletAttrib",
       [](int32_t pen, const Json& a, Numbers& n) {
         const std::vector<PenletAttribute> attributes = Attributes(a);
         return pcSetPenletAttrib(pen, n.Channel(a), a.at("guid").get<std::string>().c_str(), attributes.data(),
                                  static_cast<int32_t>(attributes.size()));
       }},
      {"pcUninstallPenlet",
       [](int32_t pen, const Json& a, Numbers& n) {
         return pcUninstallPenlet(pen, n.Channel(a), a.at("guid").get<std::string>().c_str());
       }},
      {"pcDfuDetach", [](int32_t pen, const Json&, Numbers&) { return pcDfuDetach(pen, 0, 0); }},
      {"pcDfuDownload", [](int32_t pen, const Json& a, Numbers&) {
         return pcDfuDownload(pen, a.at("file").get<std::string>().c_str(), nullptr, nullptr, 0);
       }}};
  return players;
}

// Time goes by as it did in the recording, without the waiting.
int64_t g_now = 0;

struct Fault {
  std::string function;
  int32_t call = 0;
  int32_t error = 0;
  int32_t seen = 0;
};

Fault ParseFault(const std::string& text) {
  Fault fault;
  const size_t first = text.find(':');
  const size_t second = text.find(':', first == std::string::npos ? first : first + 1);
  try {
    if (second == std::string::npos) throw std::invalid_argument(text);
    fault.function = text.substr(0, first);
    fault.call = std::stoi(text.substr(first + 1, second - first - 1));
    fault.error = std::stoi(text.substr(second + 1));
  } catch (const std::exception&) {
    throw std::invalid_argument(fmt::format("\"{}\" should be FUNCTION:CALL:ERROR, as pcStartObex:1:115", text));
  }
  if (!Players().contains(fault.function)) {
    throw std::invalid_argument(fmt::format("there is no pen function \"{}\"", fault.function));
  }
  return fault;
}

int32_t FailChosenCall(void* context, int32_t, const char* function, int32_t) {
  Fault& fault = *static_cast<Fault*>(context);
  if (fault.function != function) return 0;
  return ++fault.seen == fault.call || fault.call == 0 ? fault.error : 0;
}

Json PlayLine(const Json& line, Numbers& numbers) {
  const std::string function = line.at("function");
  const auto player = Players().find(function);
  if (player == Players().end()) throw std::invalid_argument(fmt::format("the trace calls {}", function));
  g_now = line.at("time");
  const int32_t result = player->second(numbers.Pen(line.at("pen")), line.at("arguments"), numbers);
  return {{"function", function}, {"recorded", line.at("result")}, {"result", result}};
}

Json PlayText(const std::string& text, Numbers& numbers, int number) {
  try {
    return PlayLine(Json::parse(text), numbers);
  } catch (const Json::exception&) {
    throw std::invalid_argument(fmt::format("line {} of the trace is no call", number));
  }
}

}  // namespace

int Replay(const Arguments& arguments) {
  std::ifstream trace(arguments.file);
  if (!trace) throw std::invalid_argument(fmt::format("the trace {} cannot be read", arguments.file));
  Fault fault = arguments.fault.empty() ? Fault{} : ParseFault(arguments.fault);
  if (!fault.function.empty()) pbSetHook(FailChosenCall, &fault);
  pbSetClock([](void*) { return g_now; }, [](void*, int64_t milliseconds) { g_now += milliseconds; }, nullptr);
  Numbers numbers;
  int calls = 0;
  int differences = 0;
  for (std::string text; std::getline(trace, text); ++calls) {
    const Json played = PlayText(text, numbers, calls + 1);
    const bool differs = played["result"] != played["recorded"];
    differences += differs;
    if (arguments.json) {
      fmt::print("{}\n", played.dump());
    } else if (differs) {
      fmt::print("call {}: {} gave {} and was recorded with {}\n", calls + 1, played["function"].get<std::string>(),
                 played["result"].get<int>(), played["recorded"].get<int>());
    }
  }
  if (!arguments.json) fmt::print("{} calls made, {} with another result.\n", calls, differences);
  return differences == 0 ? 0 : 1;
}

}  // namespace simtool
