// CPenUpdater::Remove: every penlet of one group leaves the pen.
#include "Common/Logger_mac.h"
#include "installer/updater/ObexChannel.h"
#include "installer/updater/PenLibrary.h"
#include "installer/updater/Reports.h"

namespace {

struct Removal {
  int32_t penHandle;
  const std::string groupName;
  ObexChannel channel{};
  int32_t items = 0;   // the pen's penlets, of whatever group
  uint64_t total = 0;  // those of the group, counted before any is removed

  // Reads one item; false for one that cannot be read, is not there or belongs to another group.
  bool ReadMember(int32_t index, PenletInfo* penlet) const {
    return ReadPenletItem(penHandle, index, penlet) == 0 && penlet->present != 0 &&
           FieldText(penlet->groupName) == groupName;
  }
};

InsResCode ListPenlets(Removal& run, UpdaterPen& pen) {
  const int32_t channel = run.channel.channel();
  uint64_t penId = 0;
  if (pcGetPenId(run.penHandle, &penId, &channel, nullptr, 0) != 0) {
    g_Logger.LogEvent("Remove", "Unable get penId, penHandle=%d", run.penHandle);
    return insPenFailure;
  }
  pen.m_penId = penId;
  int32_t pcRet = pcGetPenletInfo(run.penHandle, channel, nullptr, 0, nullptr, nullptr);
  if (pcRet != 0) {
    g_Logger.LogEvent("Remove", "Unable get penlet list. pcRet=%d", pcRet);
    return insPenFailure;
  }
  pcRet = CountPenlets(run.penHandle, "Remove", &run.items);
  if (pcRet != 0) {
    g_Logger.LogEvent("Remove", "Unable count penlet list. pcRet=%d", pcRet);
    return insPenFailure;
  }
  PenletInfo penlet;
  for (int32_t i = 0; i < run.items; ++i) run.total += run.ReadMember(i, &penlet);
  return insSuccess;
}

// A penlet that resists shows in the log and in its report; the others are removed all the same.
void RemovePenlet(const Removal& run, CPenUpdater& updater, const PenletInfo& penlet, uint64_t number) {
  const std::string name = FieldText(penlet.name);
  const std::string guid = FieldText(penlet.guid);
  const std::string version = FieldText(penlet.version);
  const int32_t pcRet = pcUninstallPenlet(run.penHandle, run.channel.channel(), guid.c_str());
  if (pcRet != 0) g_Logger.LogEvent("Remove", "Unable remove penlet %s. pcRet=%d", name.c_str(), pcRet);
  if (!updater.m_callback) return;
  PenUpdateProgressCallbackInfo info{};
  info.result = pcRet == 0 ? insSuccess : insPenFailure;
  info.penId = updater.m_penId;
  info.packageName = name.c_str();
  info.guid = guid.c_str();
  info.version = version.c_str();
  info.action = "Removing";
  info.fileType = penlet.firstId != 0 && penlet.secondId != 0 ? "PaperProduct" : "PenApp";
  info.groupName = run.groupName.c_str();
  info.doneCount = number;
  info.totalCount = run.total;
  if (CallHost(updater, run.penHandle, info) != 0) updater.m_abort = true;
}

InsResCode RemovePenlets(const Removal& run, CPenUpdater& updater) {
  updater.m_abort = false;
  uint64_t number = 0;
  PenletInfo penlet;
  for (int32_t i = 0; i < run.items; ++i) {
    if (!run.ReadMember(i, &penlet)) continue;
    RemovePenlet(run, updater, penlet, ++number);
    if (updater.m_abort) return insAborted;
  }
  return insSuccess;
}

}  // namespace

InsResCode CPenUpdater::Remove(int32_t penHandle, const char* groupName, PenUpdateProgressCallback callback,
                               void* userData) {
  BeginRun(*this, nullptr, callback, userData);
  // An empty name is the name of penlets without a group; no name is none of theirs.
  if (!groupName) {
    g_Logger.LogEvent("Remove", "No group name, nothing is removed. penHandle=%d", penHandle);
    return insSuccess;
  }
  Removal run{penHandle, groupName};
  const int32_t pcRet = run.channel.Start(penHandle);
  if (pcRet != 0) {
    g_Logger.LogEvent("Remove", "Unable start pen connection. pcRet=%d", pcRet);
    return insPenFailure;
  }
  const InsResCode listed = ListPenlets(run, *this);
  return listed == insSuccess ? RemovePenlets(run, *this) : listed;
}
