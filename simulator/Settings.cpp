#include "simulator/Settings.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <variant>

#include "simulator/Pen.h"
#include "simulator/Problem.h"

namespace sim {
namespace {

using Field = std::variant<int64_t Settings::*, bool Settings::*, std::string Settings::*>;

struct Setting {
  const char* name;
  Field field;
  const char* meaning;
  const char* choices = "";  // of a text, separated by "|"; empty for any
  // What else a text that is not empty must be; `wanted` says it.
  bool (*accepts)(std::string_view text) = nullptr;
  const char* wanted = "";
};

constexpr int64_t kGreatest = 1'000'000'000'000'000;  // beyond any size, speed or time that makes sense

bool IsCount(std::string_view text) {
  int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

bool IsId(std::string_view text) {
  try {
    return ParseId(std::string(text)) != 0;
  } catch (const Problem&) {
    return false;
  }
}

bool IsFirmware(std::string_view text) {
  return ParseFirmware(text).has_value();
}

constexpr std::array kSettings = {
    Setting{"transfer-speed", &Settings::transferSpeed, "bytes per second of a transfer; 0 for no delay"},
    Setting{"tick-size", &Settings::tickSize, "bytes between two progress calls"},
    Setting{"own-thread", &Settings::ownThread, "progress calls come from a thread of the library's own"},
    Setting{"free-space", &Settings::freeSpace, "bytes for applications that are left"},
    Setting{"leave-time", &Settings::leaveTime, "milliseconds until the pen leaves the bus for new firmware"},
    Setting{"return-time", &Settings::returnTime, "milliseconds from there until it is back"},
    Setting{"never-leaves", &Settings::neverLeaves, "the pen stays on the bus when it should leave"},
    Setting{"never-returns", &Settings::neverReturns, "the pen leaves and does not come back"},
    Setting{"returns-as", &Settings::returnsAs, "the id that the pen tells once it is back; empty for its own", "",
            IsId, "a pen id"},
    Setting{"returns-with", &Settings::returnsWith, "the firmware version after a download; empty for the image's", "",
            IsFirmware, "a version such as 8.9.15.b2"},
    Setting{"penlet-order", &Settings::penletOrder, "the order in which penlets are reported",
            "stored|reversed|by-version"},
    Setting{"unreadable", &Settings::unreadable, "GUIDs of penlets whose items cannot be read, with commas between"},
    Setting{"absent", &Settings::absent, "GUIDs of penlets whose items are reported as not present"},
    Setting{"penlet-count", &Settings::penletCount, "the number of penlets that the pen claims; empty for the true one",
            "", IsCount, "a 32-bit number"},
    Setting{"unterminated", &Settings::unterminated, "texts fill their fields to the last byte, without a NUL"},
    Setting{"refuses-attributes", &Settings::refusesAttributes, "the pen takes no attributes"},
    Setting{"unplug-at", &Settings::unplugAt,
            "the byte of the next transfer at which the pen is unplugged; -1 for never"},
    Setting{"leaves-half", &Settings::leavesHalf, "a transfer that ends early leaves a penlet with the version 0"},
    Setting{"starts-in-download", &Settings::startsInDownload, "the pen is in download mode when it is plugged in"},
    Setting{"stray-progress", &Settings::strayProgress,
            "progress calls also come with another pen's handle, from a second thread and after the end"},
    Setting{"kills-host-at", &Settings::killsHostAt,
            "the call about this pen, counted in each process from 1, at which the process is killed; 0 for never"},
};

const Setting& Find(std::string_view name) {
  for (const Setting& setting : kSettings) {
    if (name == setting.name) return setting;
  }
  throw Problem(pbErrSetting, fmt::format("there is no setting \"{}\"", name));
}

[[noreturn]] void Refuse(const Setting& setting, std::string_view value, std::string_view wanted) {
  throw Problem(pbErrSetting, fmt::format("the setting {} takes {}, not \"{}\"", setting.name, wanted, value));
}

void Assign(Settings& settings, const Setting& setting, int64_t Settings::*field, std::string_view value) {
  int64_t number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error != std::errc() || end != value.data() + value.size() || number < -1 || number > kGreatest) {
    Refuse(setting, value, fmt::format("a number from -1 to {}", kGreatest));
  }
  settings.*field = number;
}

void Assign(Settings& settings, const Setting& setting, bool Settings::*field, std::string_view value) {
  if (value != "true" && value != "false") Refuse(setting, value, "true or false");
  settings.*field = value == "true";
}

void Assign(Settings& settings, const Setting& setting, std::string Settings::*field, std::string_view value) {
  const std::string_view choices = setting.choices;
  if (!choices.empty() &&
      (value.empty() || fmt::format("|{}|", choices).find(fmt::format("|{}|", value)) == std::string::npos)) {
    Refuse(setting, value, fmt::format("one of {}", choices));
  }
  if (setting.accepts && !value.empty() && !setting.accepts(value)) Refuse(setting, value, setting.wanted);
  settings.*field = value;
}

std::string ValueText(const Json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

}  // namespace

void SetFromText(Settings& settings, std::string_view name, std::string_view value) {
  const Setting& setting = Find(name);
  std::visit([&](auto field) { Assign(settings, setting, field, value); }, setting.field);
}

Json SettingsToJson(const Settings& settings) {
  const Settings defaults;
  Json json = Json::object();
  for (const Setting& setting : kSettings) {
    std::visit(
        [&](auto field) {
          if (settings.*field != defaults.*field) json[setting.name] = settings.*field;
        },
        setting.field);
  }
  return json;
}

Settings SettingsFromJson(const Json& json) {
  Settings settings;
  for (const auto& [name, value] : json.items()) SetFromText(settings, name, ValueText(value));
  return settings;
}

Json DescribeSettings() {
  const Settings defaults;
  Json all = Json::array();
  for (const Setting& setting : kSettings) {
    Json one = {{"name", setting.name}};
    std::visit([&](auto field) { one["default"] = defaults.*field; }, setting.field);
    one["meaning"] = setting.meaning;
    if (*setting.choices) one["choices"] = setting.choices;
    all.push_back(one);
  }
  return all;
}

bool ListHolds(std::string_view list, std::string_view word) {
  return !word.empty() && fmt::format(",{},", list).find(fmt::format(",{},", word)) != std::string::npos;
}

}  // namespace sim
