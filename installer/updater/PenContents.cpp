#include "installer/updater/PenContents.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "Common/Logger_mac.h"
#include "installer/updater/ObexChannel.h"
#include "installer/updater/PenLibrary.h"

namespace {

constexpr const char* kTag = "CachePenInfos";
constexpr size_t kLongestFirmwareVersion = 49;

bool RefreshPen(int32_t penHandle, int32_t channel) {
  return pcGetPenInfo(penHandle, channel, nullptr, 0, nullptr, nullptr) == 0 &&
         pcGetPenletInfo(penHandle, channel, nullptr, 0, nullptr, nullptr) == 0;
}

}  // namespace

bool RefreshPenOver(int32_t channel, int32_t penHandle) {
  if (channel != 0) return RefreshPen(penHandle, channel);
  ObexChannel own;
  return own.Start(penHandle) == 0 && RefreshPen(penHandle, own.channel());
}

// A pen says "12-34-080915" and "b2" where a bundle says "8.9.15.b2".
bool ReadFirmwareVersion(int32_t penHandle, std::string* fwVersion) {
  PenVersionInfo info{};
  if (pcGetVersionInfo(penHandle, &info) != 0) return false;
  const std::string text = FieldText(info.firmwareVersion);
  std::array<int, 3> numbers{};
  if (std::sscanf(text.c_str(), "%*[0-9]-%*[0-9]-%2d%2d%2d", &numbers[0], &numbers[1], &numbers[2]) != 3) {
    g_Logger.LogEvent(kTag, "Error parsing firmware version \"%s\"", text.c_str());
    return false;
  }
  *fwVersion = std::to_string(numbers[0]) + "." + std::to_string(numbers[1]) + "." + std::to_string(numbers[2]) + "." +
               FieldText(info.versionSuffix);
  fwVersion->resize(std::min(fwVersion->size(), kLongestFirmwareVersion));
  return true;
}

bool ReadPenlets(int32_t penHandle, std::map<std::string, PenletInfo>* penlets) {
  int32_t count = 0;
  if (CountPenlets(penHandle, kTag, &count) != 0) return false;
  PenletInfo penlet;
  for (int32_t i = 0; i < count; ++i) {
    if (ReadPenletItem(penHandle, i, &penlet) != 0 || penlet.present == 0) continue;
    (*penlets)[FieldText(penlet.guid)] = penlet;
  }
  return true;
}
