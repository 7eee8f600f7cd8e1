#include "simulator/Connections.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "simulator/Problem.h"

namespace sim {
namespace {

std::filesystem::path LockFile(std::string name, uint64_t penId) {
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
  return PenFolder() / "locks" / fmt::format("{}-{}", name, IdText(penId));
}

std::vector<Penlet> InReportedOrder(const Pen& pen) {
  std::vector<Penlet> penlets = pen.penlets;
  if (pen.settings.penletOrder == "reversed") std::reverse(penlets.begin(), penlets.end());
  if (pen.settings.penletOrder == "by-version") {
    std::stable_sort(penlets.begin(), penlets.end(),
                     [](const Penlet& a, const Penlet& b) { return a.version < b.version; });
  }
  return penlets;
}

}  // namespace

Connections& Connections::Instance() {
  static Connections* const instance = new Connections;  // outlives whoever calls late
  return *instance;
}

int32_t Connections::OpenChannel(const Pen& pen) {
  const std::lock_guard lock(m_lock);
  // A channel ends with the pen's stay on the bus.
  std::erase_if(m_channels, [&](const auto& entry) {
    return entry.second.penId == pen.id && entry.second.penHandle != pen.handle;
  });
  FileLock mark(LockFile("channel", pen.id), FileLock::Wait::kNot);
  if (!mark.isLocked()) throw Problem(pbErrChannelBusy);
  m_channels.emplace(++m_lastChannel, Channel{pen.handle, pen.id, std::move(mark)});
  return m_lastChannel;
}

void Connections::CloseChannel(int32_t channel) {
  const std::lock_guard lock(m_lock);
  if (m_channels.erase(channel) == 0) throw Problem(pbErrChannel);
}

void Connections::CheckChannel(int32_t channel, int32_t penHandle) {
  const std::lock_guard lock(m_lock);
  const auto found = m_channels.find(channel);
  if (found == m_channels.end()) throw Problem(pbErrChannel);
  if (found->second.penHandle != penHandle) throw Problem(pbErrOtherChannel);
}

uint64_t Connections::PenOfChannel(int32_t channel) {
  const std::lock_guard lock(m_lock);
  const auto found = m_channels.find(channel);
  return found == m_channels.end() ? 0 : found->second.penId;
}

void Connections::Mark(const std::string& name, uint64_t penId) {
  const std::lock_guard lock(m_lock);
  FileLock mark(LockFile("mark-" + name, penId), FileLock::Wait::kNot);
  if (!mark.isLocked()) throw Problem(pbErrMark);
  m_marks.emplace(std::pair(name, penId), std::move(mark));
}

void Connections::Unmark(const std::string& name, uint64_t penId) {
  const std::lock_guard lock(m_lock);
  if (m_marks.erase({name, penId}) == 0) throw Problem(pbErrNoMark);
}

void Connections::KeepVersion(int32_t penHandle, const PenVersionInfo& info) {
  const std::lock_guard lock(m_lock);
  m_versions[penHandle] = info;
}

PenVersionInfo Connections::Version(int32_t penHandle) {
  const std::lock_guard lock(m_lock);
  const auto found = m_versions.find(penHandle);
  if (found == m_versions.end()) throw Problem(pbErrNotRead);
  return found->second;
}

void Connections::KeepPenlets(const Pen& pen) {
  List list;
  for (const Penlet& penlet : InReportedOrder(pen)) {
    list.items.push_back({ToInfo(penlet, pen.settings), !ListHolds(pen.settings.unreadable, penlet.guid)});
  }
  const std::string& claimed = pen.settings.penletCount;
  list.count = claimed.empty() ? static_cast<int32_t>(list.items.size()) : std::stoi(claimed);
  const std::lock_guard lock(m_lock);
  m_lists[pen.handle] = std::move(list);
}

int32_t Connections::PenletCount(int32_t penHandle) {
  const std::lock_guard lock(m_lock);
  const auto found = m_lists.find(penHandle);
  if (found == m_lists.end()) throw Problem(pbErrNotRead);
  return found->second.count;
}

PenletInfo Connections::PenletItem(int32_t penHandle, int32_t index) {
  const std::lock_guard lock(m_lock);
  const auto found = m_lists.find(penHandle);
  if (found == m_lists.end()) throw Problem(pbErrNotRead);
  const std::vector<Item>& items = found->second.items;
  if (index < 0 || index >= found->second.count || items.empty()) throw Problem(pbErrIndex);
  // A pen that claims more penlets than it has tells the same ones again.
  const Item& item = items[static_cast<size_t>(index) % items.size()];
  if (!item.readable) throw Problem(pbErrUnreadable);
  return item.info;
}

bool Connections::Enumerate(int32_t penHandle) {
  const std::lock_guard lock(m_lock);
  return m_enumerated.insert(penHandle).second;
}

int32_t Connections::channels() {
  const std::lock_guard lock(m_lock);
  return static_cast<int32_t>(m_channels.size());
}

int32_t Connections::marks() {
  const std::lock_guard lock(m_lock);
  return static_cast<int32_t>(m_marks.size());
}

void Connections::Forget() {
  const std::lock_guard lock(m_lock);
  m_lastChannel = 0;
  m_channels.clear();
  m_marks.clear();
  m_versions.clear();
  m_lists.clear();
  m_enumerated.clear();
}

}  // namespace sim
