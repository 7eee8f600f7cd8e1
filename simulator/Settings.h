// How a pen behaves beyond the ordinary: one table, from which a pen's file, pbSet, `tessvik-sim set` and the manual
// all take the settings. A setting that is not in it is an error.
#ifndef QUARVEL_SIMULATOR_SETTINGS_H
#define QUARVEL_SIMULATOR_SETTINGS_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace sim {

using Json = nlohmann::ordered_json;

struct Settings {
  int64_t transferSpeed = 0;
  int64_t tickSize = 65536;
  bool ownThread = false;
  int64_t freeSpace = 64 << 20;
  int64_t leaveTime = 1000;
  int64_t returnTime = 2000;
  bool neverLeaves = false;
  bool neverReturns = false;
  std::string returnsAs{};
  std::string returnsWith{};
  std::string penletOrder = "stored";
  std::string unreadable{};
  std::string absent{};
  std::string penletCount{};
  bool unterminated = false;
  bool refusesAttributes = false;
  int64_t unplugAt = -1;
  bool leavesHalf = false;
  bool startsInDownload = false;
  bool strayProgress = false;
  int64_t killsHostAt = 0;
};

// Sets one from a text as a person types it; throws pbErrSetting.
void SetFromText(Settings& settings, std::string_view name, std::string_view value);

// Those that differ from their defaults, and back; the latter throws pbErrSetting.
Json SettingsToJson(const Settings& settings);
Settings SettingsFromJson(const Json& json);

// name, default, meaning of every setting.
Json DescribeSettings();

// Whether a comma-separated list holds the word.
bool ListHolds(std::string_view list, std::string_view word);

}  // namespace sim

#endif
