#include "simulator/tool/SeenContents.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "platform/Tessvik.h"
#include "simulator/PenBench.h"

namespace simtool {
namespace {

using trace::Recorded;
using trace::TextOf;

// A text without the filling that a pen put after it where a field has no end.
std::string FieldText(const Json& item, const char* member, size_t field, bool& isFull) {
  std::string text = TextOf(item, member);
  if (text.size() < field) return text;
  isFull = true;
  text.resize(field - 1);
  return text.substr(0, text.find_last_not_of('x') + 1);
}

Json PenletOf(const Json& item, bool& isFull) {
  Json penlet = {{"guid", FieldText(item, "guid", sizeof PenletInfo::guid, isFull)},
                 {"name", FieldText(item, "name", sizeof PenletInfo::name, isFull)},
                 {"displayName", FieldText(item, "displayName", sizeof PenletInfo::displayName, isFull)},
                 {"version", FieldText(item, "version", sizeof PenletInfo::version, isFull)},
                 {"build", item.value("build", Json(0))},
                 {"group", FieldText(item, "group", sizeof PenletInfo::groupName, isFull)},
                 {"groupVersion", FieldText(item, "groupVersion", sizeof PenletInfo::groupVersion, isFull)},
                 {"firstId", item.value("firstId", Json(0))},
                 {"secondId", item.value("secondId", Json(0))}};
  const bool isPaper = penlet["firstId"] != 0 || penlet["secondId"] != 0;
  penlet["kind"] = isPaper ? "paper" : "app";
  return penlet;
}

// One reading of the pen's list: the items by index, and the errors of those that could not be read.
struct Reading {
  std::map<int64_t, Json> items{};
  std::map<int64_t, int64_t> errors{};
  int64_t count = -1;
  size_t at = 0;
};

std::vector<Reading> Readings(const CallList& all, const Places& calls) {
  std::vector<Reading> readings;
  for (const size_t place : calls) {
    const Recorded& call = all[place];
    if (call.function == "pcGetPenletInfo" && call.result == 0) readings.push_back({.at = place});
    if (readings.empty()) continue;
    Reading& reading = readings.back();
    if (call.function == "pcGetPenletCount" && call.result == 0) reading.count = call.out.value("count", Json(-1));
    if (call.function != "pcGetPenletItem") continue;
    const int64_t index = call.in.value("index", Json(0));
    if (reading.items.contains(index)) continue;
    if (call.result == 0) {
      reading.items[index] = call.out;
      reading.errors.erase(index);
    } else {
      reading.errors.emplace(index, call.result);
    }
  }
  return readings;
}

// The first item with the GUID that the pen told after a call; null without one.
Json ItemAfter(const CallList& all, const Places& calls, size_t call, const std::string& guid) {
  for (const size_t place : calls) {
    if (place > call && all[place].function == "pcGetPenletItem" && TextOf(all[place].out, "guid") == guid) {
      return all[place].out;
    }
  }
  return nullptr;
}

std::string FileStem(const Json& in) {
  std::string name = TextOf(in, "file");
  name = name.substr(name.find_last_of('/') + 1);
  name = name.substr(0, std::min<size_t>(name.find('.'), sizeof PenletInfo::guid - 1));
  return name.empty() ? "unknown" : name;
}

// The GUID whose attributes the same thread writes before it sends the next application.
std::string GuidWrittenAfter(const CallList& all, const Places& calls, size_t call) {
  for (const size_t place : calls) {
    const Recorded& next = all[place];
    if (place <= call || next.thread != all[call].thread) continue;
    if (next.function == "pcInstallPenlet") return "";
    if (next.function == "pcSetPenletAttrib") return TextOf(next.in, "guid");
  }
  return "";
}

int64_t BytesOfFile(const Recorded& call) {
  return call.in.value("bytes", Json(-1));
}

// Lines cannot hold what ends one.
std::string OneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

bool WasSentBefore(const CallList& all, const std::map<size_t, SeenFile>& files, size_t call, const std::string& guid) {
  return std::any_of(files.begin(), files.end(), [&](const auto& file) {
    const std::vector<std::string>& head = file.second.head;
    return file.first < call && all[file.first].result == 0 &&
           std::find(head.begin(), head.end(), "guid: " + guid) != head.end();
  });
}

std::string List(const std::vector<std::string>& words) {
  return fmt::format("{}", fmt::join(words, ","));
}

// The penlets of the pen's first reading, each once; what could not be read then is taken from a later one.
class FirstContents {
 public:
  FirstContents(const CallList& all, const Places& calls, const std::map<size_t, SeenFile>& files)
      : m_all(all), m_files(files), m_readings(Readings(all, calls)) {}

  void Describe(Json& pen) {
    for (const Reading& reading : m_readings) {
      for (const auto& [index, item] : reading.items) Take(item, reading.at);
      if (&reading == &m_readings.front()) TakeUnread(reading);
    }
    pen["penlets"] = m_penlets;
    Json& settings = pen["settings"];
    if (!m_absent.empty()) settings["absent"] = List(m_absent);
    if (!m_unreadable.empty()) settings["unreadable"] = List(m_unreadable);
    if (m_isFull) settings["unterminated"] = true;
    if (m_readings.empty() || m_readings.front().count < 0) return;
    const int64_t count = m_readings.front().count;
    const auto held = static_cast<int64_t>(m_heldAtFirst);
    if (count != held) settings["penlet-count"] = std::to_string(count);
  }

 private:
  void Take(const Json& item, size_t at) {
    if (!item.is_object()) return;
    const Json penlet = PenletOf(item, m_isFull);
    const std::string guid = penlet["guid"];
    if (guid.empty() || !m_seen.insert(guid).second || WasSentBefore(m_all, m_files, at, guid)) return;
    m_penlets.push_back(penlet);
    if (item.value("present", Json(1)) == Json(0)) m_absent.push_back(guid);
    if (at == m_readings.front().at) ++m_heldAtFirst;
  }

  // Items that the first reading failed to read stand for penlets that a later one may name.
  void TakeUnread(const Reading& reading) {
    for (const auto& [index, error] : reading.errors) {
      ++m_heldAtFirst;
      if (FindLater(index, reading)) continue;
      const std::string guid = fmt::format("unread-{}", index);
      m_penlets.push_back({{"guid", guid}});
      if (error == pbErrUnreadable) m_unreadable.push_back(guid);
    }
  }

  bool FindLater(int64_t index, const Reading& first) {
    for (const Reading& reading : m_readings) {
      if (&reading == &first || reading.count < first.count) continue;
      const auto found = reading.items.find(index);
      if (found == reading.items.end()) continue;
      const size_t before = m_penlets.size();
      Take(found->second, reading.at);
      // It stands where it stood, as far as what is before it was read.
      if (m_penlets.size() > before && static_cast<size_t>(index) < before) {
        std::rotate(m_penlets.begin() + static_cast<ptrdiff_t>(index), m_penlets.end() - 1, m_penlets.end());
      }
      return m_penlets.size() > before;
    }
    return false;
  }

  const CallList& m_all;
  const std::map<size_t, SeenFile>& m_files;
  const std::vector<Reading> m_readings;
  std::set<std::string> m_seen{};
  std::vector<Json> m_penlets{};
  std::vector<std::string> m_absent{};
  std::vector<std::string> m_unreadable{};
  size_t m_heldAtFirst = 0;
  bool m_isFull = false;
};

}  // namespace

std::string ToHex(uint64_t number) {
  return fmt::format("{:x}", number);
}

std::string FirmwareText(const Json& answers) {
  const std::string version = TextOf(answers, "version");
  int numbers[3] = {};
  if (sscanf(version.c_str(), "%*[0-9]-%*[0-9]-%2d%2d%2d", &numbers[0], &numbers[1], &numbers[2]) != 3) return version;
  std::string suffix = TextOf(answers, "suffix");
  if (suffix.size() >= sizeof PenVersionInfo::versionSuffix) suffix.resize(suffix.find_last_not_of('x') + 1);
  return fmt::format("{}.{}.{}.{}", numbers[0], numbers[1], numbers[2], suffix);
}

SeenFile AppFile(const CallList& all, const Places& calls, size_t call) {
  std::string guid = GuidWrittenAfter(all, calls, call);
  if (guid.empty() || guid.size() >= sizeof PenletInfo::guid) guid = FileStem(all[call].in);
  SeenFile file{{"TESSVIK-APP 1", "guid: " + OneLine(guid)}, BytesOfFile(all[call])};
  const Json item = ItemAfter(all, calls, call, guid);
  bool isFull = false;
  const Json penlet = PenletOf(item.is_object() ? item : Json::object(), isFull);
  for (const char* member : {"version", "name"}) {
    const std::string text = OneLine(penlet[member].get<std::string>());
    const std::string usual = member == std::string("version") ? "1.0" : guid;
    file.head.push_back(fmt::format("{}: {}", member, text.empty() ? usual : text));
  }
  file.head.push_back(fmt::format("build: {}", penlet["build"].dump()));
  file.head.push_back("kind: " + penlet["kind"].get<std::string>());
  return file;
}

SeenFile FirmwareFile(const CallList& all, const Places& calls, size_t call) {
  std::string version;
  for (const size_t place : calls) {
    if (place <= call || !version.empty()) continue;
    if (all[place].function == "pcGetVersionInfo" && all[place].result == 0) version = FirmwareText(all[place].out);
  }
  const std::string unknown = "0.0.0.unknown";
  return {{"TESSVIK-FIRMWARE 1", "version: " + OneLine(version.empty() ? unknown : version)}, BytesOfFile(all[call])};
}

void DescribePen(const CallList& all, const Places& calls, Json& pen) {
  bool wasUpdated = false;
  Json settings = Json::object();
  for (const size_t place : calls) {
    const Recorded& call = all[place];
    if (!call.ticks.empty() && !settings.contains("tick-size") && call.ticks[0].number == 1 && call.ticks[0].done > 0) {
      settings["tick-size"] = call.ticks[0].done;
    }
    if (call.result != 0) continue;
    if (call.function == "pcDfuDownload") wasUpdated = true;
    if (call.function == "pcGetPenType" && !pen.contains("type")) {
      pen["type"] = call.out.value("type", Json(1)).get<int32_t>() & 0xffff;
    }
    const std::string name = TextOf(call.out, "name");
    if (call.function == "pcGetPenId" && !name.empty() && !pen.contains("name")) pen["name"] = name;
    if (call.function != "pcGetVersionInfo" || pen.contains("firmware") || wasUpdated) continue;
    pen["firmware"] = FirmwareText(call.out);
    const bool isFull = TextOf(call.out, "suffix").size() >= sizeof PenVersionInfo::versionSuffix;
    if (isFull) settings["unterminated"] = true;
  }
  pen["settings"] = std::move(settings);
}

void DescribeContents(const CallList& all, const Places& calls, const std::map<size_t, SeenFile>& files, Json& pen) {
  FirstContents(all, calls, files).Describe(pen);
}

}  // namespace simtool
