// What this process holds of the pens: open channels, marks, and what it has read from each. Any thread.
#ifndef QUARVEL_SIMULATOR_CONNECTIONS_H
#define QUARVEL_SIMULATOR_CONNECTIONS_H

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "simulator/Bench.h"

namespace sim {

class Connections {
 public:
  static Connections& Instance();

  // Channels: one on a pen at a time, in all processes. All throw Problem.
  int32_t OpenChannel(const Pen& pen);
  void CloseChannel(int32_t channel);
  void CheckChannel(int32_t channel, int32_t penHandle);
  // The id of a channel's pen, 0 for a channel that is not open.
  uint64_t PenOfChannel(int32_t channel);

  // Marks, by name and pen id.
  void Mark(const std::string& name, uint64_t penId);
  void Unmark(const std::string& name, uint64_t penId);

  // What was read from the pen that is on the bus under a handle. Throw pbErrNotRead and pbErrIndex.
  void KeepVersion(int32_t penHandle, const PenVersionInfo& info);
  PenVersionInfo Version(int32_t penHandle);
  void KeepPenlets(const Pen& pen);
  int32_t PenletCount(int32_t penHandle);
  PenletInfo PenletItem(int32_t penHandle, int32_t index);

  // True the first time for a handle.
  bool Enumerate(int32_t penHandle);

  int32_t channels();
  int32_t marks();
  void Forget();

 private:
  struct Channel {
    int32_t penHandle;
    uint64_t penId;
    FileLock lock;
  };
  struct Item {
    PenletInfo info;
    bool readable;
  };
  struct List {
    int32_t count;
    std::vector<Item> items;
  };

  std::mutex m_lock;
  int32_t m_lastChannel = 0;
  std::map<int32_t, Channel> m_channels;
  std::map<std::pair<std::string, uint64_t>, FileLock> m_marks;
  std::map<int32_t, PenVersionInfo> m_versions;
  std::map<int32_t, List> m_lists;
  std::set<int32_t> m_enumerated;
};

}  // namespace sim

#endif
