// What the updater reads from its pen, and what it remembers to do about it.
#include "installer/updater/PenContents.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "Common/Logger_mac.h"
#include "installer/updater/ObexChannel.h"
#include "installer/updater/PenLibrary.h"
#include "installer/updater/PenUpdater.h"

namespace {

constexpr size_t kLongestFirmwareVersion = 49;

bool RefreshPen(int32_t penHandle, int32_t channel) {
  return pcGetPenInfo(penHandle, channel, nullptr, 0, nullptr, nullptr) == 0 &&
         pcGetPenletInfo(penHandle, channel, nullptr, 0, nullptr, nullptr) == 0;
}

// Over the given channel or, for 0, over one of its own.
bool RefreshPenOver(int32_t channel, int32_t penHandle) {
  if (channel != 0) return RefreshPen(penHandle, channel);
  ObexChannel own;
  return own.Start(penHandle) == 0 && RefreshPen(penHandle, own.channel());
}

}  // namespace

bool CPenUpdater::CachePenInfos(int32_t channel) {
  m_penlets.clear();
  m_fwVersion.clear();
  return RefreshPenOver(channel, m_penHandle) && ReadFirmwareVersion() && ReadPenlets();
}

// CachePenInfos as a step of a run, logged under the tag of the function that takes it.
InsResCode CPenUpdater::ReadContents(int32_t channel, const char* tag) {
  if (CachePenInfos(channel)) return insSuccess;
  g_Logger.LogEvent(tag, "Unable cache pen and penlet information. penHandle=%d", m_penHandle);
  return insPenFailure;
}

// A pen says "12-34-080915" and "b2" where a bundle says "8.9.15.b2".
bool CPenUpdater::ReadFirmwareVersion() {
  PenVersionInfo info{};
  if (pcGetVersionInfo(m_penHandle, &info) != 0) return false;
  const std::string text = FieldText(info.firmwareVersion);
  std::array<int, 3> numbers{};
  if (std::sscanf(text.c_str(), "%*[0-9]-%*[0-9]-%2d%2d%2d", &numbers[0], &numbers[1], &numbers[2]) != 3) {
    g_Logger.LogEvent("CachePenInfos", "Error parsing firmware version \"%s\"", text.c_str());
    return false;
  }
  m_fwVersion = std::to_string(numbers[0]) + "." + std::to_string(numbers[1]) + "." + std::to_string(numbers[2]) + "." +
                FieldText(info.versionSuffix);
  m_fwVersion.resize(std::min(m_fwVersion.size(), kLongestFirmwareVersion));
  return true;
}

bool CPenUpdater::ReadPenlets() {
  int32_t count = 0;
  if (CountPenlets(m_penHandle, &count) != 0) return false;
  PenletInfo penlet;
  for (int32_t i = 0; i < count; ++i) {
    if (ReadPenletItem(m_penHandle, i, &penlet) != 0 || penlet.present == 0) continue;
    m_penlets[FieldText(penlet.guid)] = penlet;
  }
  return true;
}

bool CPenUpdater::CheckToInstall(BundlePackage& package) {
  const InstallDecision decision = DecideInstall(package, Contents());
  if (decision.record == InstallRecord::kPackage) AddProcessingItem(package);
  if (decision.record == InstallRecord::kGroupOnly) AddProcessingItem(package.guid, package.type, package.group);
  if (decision.Installs()) return true;
  g_Logger.LogEvent("CheckToInstall", "%s", DescribeSkip(decision, package, Contents()).c_str());
  return false;
}

void CPenUpdater::AddProcessingItem(BundlePackage& package) {
  m_processingItems[package.guid] = {package.type, &package, package.group};
}

void CPenUpdater::AddProcessingItem(const std::string& guid, BndPakTypes type, BundleGroup* group) {
  m_processingItems[guid] = {type, nullptr, group};
}
