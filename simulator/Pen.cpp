#include "simulator/Pen.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <string_view>

#include "simulator/Problem.h"

namespace sim {
namespace {

constexpr std::array<std::string_view, 19> kFunctions = {
    "pcGetPenHandles",   "pcGetPenId",        "pcGetPenType",       "pcGetPenState",        "pcGetPenInfo",
    "pcGetVersionInfo",  "pcEnumeratePen",    "pcRegisterVolatile", "pcUnRegisterVolatile", "pcStartObex",
    "pcStopObex",        "pcGetPenletInfo",   "pcGetPenletCount",   "pcGetPenletItem",      "pcInstallPenlet",
    "pcSetPenletAttrib", "pcUninstallPenlet", "pcDfuDetach",        "pcDfuDownload"};

template <size_t kSize>
void Copy(char (&field)[kSize], const std::string& text) {
  std::memcpy(field, text.data(), std::min(text.size(), kSize - 1));
}

template <size_t kSize>
void Fill(char (&field)[kSize]) {
  const size_t length = strnlen(field, kSize);
  std::memset(field + length, 'x', kSize - length);
}

void CheckLength(const char* what, const std::string& text, size_t field) {
  if (text.size() < field) return;
  throw Problem(pbErrText, fmt::format("a penlet's {} has at most {} characters: \"{}\"", what, field - 1, text));
}

// Refuses members that nobody reads: a misspelt one would be silently without effect.
void CheckMembers(const Json& json, const char* what, std::initializer_list<std::string_view> known) {
  if (!json.is_object()) throw Problem(pbErrPenFile, fmt::format("a {} is a JSON object", what));
  for (const auto& member : json.items()) {
    if (std::find(known.begin(), known.end(), member.key()) == known.end()) {
      throw Problem(pbErrPenFile, fmt::format("a {} has no \"{}\"", what, member.key()));
    }
  }
}

void CheckMode(const std::string& mode) {
  if (mode == "normal" || mode == "download") return;
  throw Problem(pbErrPenFile, fmt::format("a pen's mode is normal or download, not \"{}\"", mode));
}

Json EventToJson(const PenEvent& event) {
  Json json = {{"at", event.at}, {"event", event.returns ? "return" : "leave"}};
  if (event.returns) json["mode"] = event.mode;
  return json;
}

PenEvent EventFromJson(const Json& json) {
  CheckMembers(json, "event", {"at", "event", "mode"});
  PenEvent event;
  event.at = json.at("at").get<int64_t>();
  event.returns = json.at("event") == "return";
  event.mode = json.value("mode", event.mode);
  CheckMode(event.mode);
  return event;
}

Json PenletToJson(const Penlet& penlet) {
  Json json = {{"guid", penlet.guid},
               {"name", penlet.name},
               {"displayName", penlet.displayName},
               {"version", penlet.version},
               {"build", penlet.build},
               {"kind", penlet.kind},
               {"group", penlet.group},
               {"groupVersion", penlet.groupVersion},
               {"size", penlet.size}};
  if (penlet.firstId != 0 || penlet.secondId != 0) {
    json["firstId"] = penlet.firstId;
    json["secondId"] = penlet.secondId;
  }
  for (const auto& [number, value] : penlet.attributes) json["attributes"][std::to_string(number)] = value;
  return json;
}

Pen ReadPen(const Json& json) {
  CheckMembers(json, "pen",
               {"id", "reportedId", "name", "type", "firmware", "connected", "mode", "handle", "schedule", "penlets",
                "settings", "faults"});
  Pen pen;
  pen.id = ParseId(json.at("id").get<std::string>());
  pen.reportedId = json.contains("reportedId") ? ParseId(json["reportedId"].get<std::string>()) : pen.id;
  pen.name = json.value("name", pen.name);
  pen.type = json.value("type", pen.type);
  pen.firmware = json.value("firmware", pen.firmware);
  pen.connected = json.value("connected", pen.connected);
  pen.mode = json.value("mode", pen.mode);
  CheckMode(pen.mode);
  pen.handle = json.value("handle", pen.handle);
  for (const Json& event : json.value("schedule", Json::array())) pen.schedule.push_back(EventFromJson(event));
  for (const Json& penlet : json.value("penlets", Json::array())) pen.penlets.push_back(PenletFromJson(penlet));
  pen.settings = SettingsFromJson(json.value("settings", Json::object()));
  for (const Json& fault : json.value("faults", Json::array())) pen.faults.push_back(FaultFromJson(fault));
  if (pen.type < 0 || pen.type > 0xffff) throw Problem(pbErrPenFile, "a pen's type is from 0 to 65535");
  return pen;
}

}  // namespace

Penlet* Pen::FindPenlet(const std::string& guid) {
  const auto found =
      std::find_if(penlets.begin(), penlets.end(), [&](const Penlet& penlet) { return penlet.guid == guid; });
  return found == penlets.end() ? nullptr : &*found;
}

void Pen::LeaveAndReturn(int64_t now, const std::string& nextMode) {
  schedule.clear();
  if (settings.neverLeaves) return;
  const int64_t leaves = now + settings.leaveTime;
  schedule.push_back({leaves, false, mode});
  if (!settings.neverReturns) schedule.push_back({leaves + settings.returnTime, true, nextMode});
}

Penlet PenletFromJson(const Json& json) {
  CheckMembers(json, "penlet",
               {"guid", "name", "displayName", "version", "build", "kind", "group", "groupVersion", "size", "firstId",
                "secondId", "attributes"});
  Penlet penlet;
  penlet.guid = json.at("guid").get<std::string>();
  penlet.name = json.value("name", penlet.guid);
  penlet.displayName = json.value("displayName", penlet.name);
  penlet.version = json.value("version", "1.0");
  penlet.build = json.value("build", 0);
  penlet.kind = json.value("kind", penlet.kind);
  penlet.group = json.value("group", "");
  penlet.groupVersion = json.value("groupVersion", "");
  penlet.size = json.value("size", int64_t{0});
  const uint64_t paper = penlet.kind == "paper" ? 1 : 0;
  penlet.firstId = json.value("firstId", paper * std::hash<std::string>()(penlet.guid));
  penlet.secondId = json.value("secondId", paper);
  const Json attributes = json.value("attributes", Json::object());
  for (const auto& attribute : attributes.items()) {
    penlet.attributes[std::stoi(attribute.key())] = attribute.value().get<std::string>();
  }
  CheckPenlet(penlet);
  return penlet;
}

void CheckPenlet(const Penlet& penlet) {
  if (penlet.guid.empty() || penlet.guid.size() >= sizeof PenletInfo::guid) {
    throw Problem(pbErrGuid, fmt::format("a penlet's GUID has 1 to 15 characters: \"{}\"", penlet.guid));
  }
  if (penlet.kind != "app" && penlet.kind != "paper") {
    throw Problem(pbErrPenFile, fmt::format("a penlet's kind is app or paper, not \"{}\"", penlet.kind));
  }
  CheckLength("name", penlet.name, sizeof PenletInfo::name);
  CheckLength("display name", penlet.displayName, sizeof PenletInfo::displayName);
  CheckLength("version", penlet.version, sizeof PenletInfo::version);
  CheckLength("group", penlet.group, sizeof PenletInfo::groupName);
  CheckLength("group version", penlet.groupVersion, sizeof PenletInfo::groupVersion);
}

Pen PenFromJson(const Json& json) {
  try {
    return ReadPen(json);
  } catch (const Problem&) {
    throw;
  } catch (const std::exception& error) {
    throw Problem(pbErrPenFile, error.what());
  }
}

Json PenToJson(const Pen& pen) {
  Json json = {{"id", IdText(pen.id)},       {"name", pen.name}, {"type", pen.type},    {"firmware", pen.firmware},
               {"connected", pen.connected}, {"mode", pen.mode}, {"handle", pen.handle}};
  if (pen.reportedId != pen.id) json["reportedId"] = IdText(pen.reportedId);
  for (const PenEvent& event : pen.schedule) json["schedule"].push_back(EventToJson(event));
  json["penlets"] = Json::array();
  for (const Penlet& penlet : pen.penlets) json["penlets"].push_back(PenletToJson(penlet));
  json["settings"] = SettingsToJson(pen.settings);
  for (const Fault& fault : pen.faults) json["faults"].push_back(FaultToJson(fault));
  return json;
}

Json FaultToJson(const Fault& fault) {
  return {{"function", fault.function}, {"call", fault.call}, {"error", fault.error}};
}

Fault FaultFromJson(const Json& json) {
  CheckMembers(json, "fault", {"function", "call", "error"});
  const Fault fault{json.at("function").get<std::string>(), json.value("call", 0), json.at("error").get<int32_t>()};
  CheckFault(fault);
  return fault;
}

void CheckFault(const Fault& fault) {
  if (!IsPenFunction(fault.function)) {
    throw Problem(pbErrFunction, fmt::format("there is no pen function \"{}\"", fault.function));
  }
  if (fault.call >= 0 && fault.error != 0) return;
  throw Problem(pbErrArgument, "a fault names a call from 1, or 0 for all, and an error that is not 0");
}

bool IsPenFunction(std::string_view name) {
  return std::find(kFunctions.begin(), kFunctions.end(), name) != kFunctions.end();
}

std::string TextOf(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string IdText(uint64_t id) {
  return fmt::format("0x{:x}", id);
}

uint64_t ParseId(const std::string& text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const std::string digits = hex ? text.substr(2) : text;
  const bool valid = !digits.empty() && digits.size() <= (hex ? 16 : 19) &&
                     digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") == std::string::npos;
  const uint64_t id = valid ? std::stoull(digits, nullptr, hex ? 16 : 10) : 0;
  if (id == 0) throw Problem(pbErrArgument, fmt::format("\"{}\" is no pen id; give 0x and hexadecimal digits", text));
  return id;
}

PenletInfo ToInfo(const Penlet& penlet, const Settings& settings) {
  PenletInfo info{};
  info.firstId = penlet.firstId;
  info.secondId = penlet.secondId;
  Copy(info.name, penlet.name);
  Copy(info.guid, penlet.guid);
  Copy(info.displayName, penlet.displayName);
  Copy(info.version, penlet.version);
  info.present = ListHolds(settings.absent, penlet.guid) ? 0 : 1;
  info.buildNumber = penlet.build;
  Copy(info.groupName, penlet.group);
  Copy(info.groupVersion, penlet.groupVersion);
  if (settings.unterminated) {
    Fill(info.name);
    Fill(info.guid);
    Fill(info.displayName);
    Fill(info.version);
    Fill(info.groupName);
    Fill(info.groupVersion);
  }
  return info;
}

std::optional<Firmware> ParseFirmware(std::string_view text) {
  Firmware firmware{};
  for (int& number : firmware.numbers) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const auto digits = static_cast<size_t>(end - text.data());
    if (error != std::errc() || number < 0 || number > 99 || !text.substr(digits).starts_with('.')) return std::nullopt;
    text.remove_prefix(digits + 1);
  }
  if (text.empty() || text.size() >= sizeof PenVersionInfo::versionSuffix) return std::nullopt;
  firmware.suffix = text;
  return firmware;
}

// "8.9.15.b2" is told as "12-34-080915" and "b2"; a version of any other form is told as it stands.
PenVersionInfo ToVersionInfo(const Pen& pen) {
  PenVersionInfo info{};
  if (const auto firmware = ParseFirmware(pen.firmware)) {
    const auto& numbers = firmware->numbers;
    Copy(info.firmwareVersion, fmt::format("12-34-{:02}{:02}{:02}", numbers[0], numbers[1], numbers[2]));
    Copy(info.versionSuffix, firmware->suffix);
  } else {
    Copy(info.firmwareVersion, pen.firmware);
  }
  if (pen.settings.unterminated) Fill(info.versionSuffix);
  return info;
}

}  // namespace sim
