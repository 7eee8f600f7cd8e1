// One run on one pen: an install (Update) or the removal of a group (Remove). The installer front makes an updater for
// each call on the caller's thread, and it is used by that thread alone, except that other threads may ask it to abort
// and that the pen library reports a transfer's progress on whatever thread it transfers on. From construction to
// destruction it stands in a registry through which abort requests reach it.
#ifndef QUARVEL_INSTALLER_UPDATER_PENUPDATER_H
#define QUARVEL_INSTALLER_UPDATER_PENUPDATER_H

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Common/Locker.h"
#include "installer/QuarvelPublic.h"
#include "installer/bundle/Bundle.h"
#include "installer/updater/InstallDecisions.h"
#include "installer/updater/PenContents.h"

struct RemovalRun;
struct UpdateRun;

// A package or a group that the current run handles, by the GUID of its penlet.
struct UpdaterProcessingItem {
  BndPakTypes type = BndPakUnknown;
  BundlePackage* package = nullptr;  // null when only the group version is raised
  BundleGroup* group = nullptr;
};

class CPenUpdater {
 public:
  CPenUpdater();
  ~CPenUpdater();
  CPenUpdater(const CPenUpdater&) = delete;
  CPenUpdater& operator=(const CPenUpdater&) = delete;

  // Installs what `bundle` has for the pen; `*penHandle` is rewritten when the pen comes back under another handle.
  // Without a pen (null or 0) the packages that stay on the desktop are reported instead.
  InsResCode Update(int32_t* penHandle, CBundle* bundle, const PenUpdateCfg* cfg, PenUpdateProgressCallback callback,
                    void* userData);
  // Removes every penlet of a group. Failed penlets show in the log and in their record alone.
  InsResCode Remove(int32_t penHandle, const char* groupName, PenUpdateProgressCallback callback, void* userData);

  // Abort requests: of this updater, of the first one for a pen id, of all. Any thread.
  void Abort();
  static InsResCode Abort(uint64_t penId);
  static InsResCode AbortAll();

  // The pen library's progress function; `context` is a ProgressGate.
  static int32_t OnProgressCallback(int32_t penHandle, uint64_t totalBytes, uint64_t doneBytes, void* context);

 private:
  friend class PenUpdaterTest;

  // Pen handles and waits. The waits poll once a second and return 0, also when an abort was asked for.
  static bool SetDirtyHandle(int32_t handle);
  int32_t RefreshPenHandle();
  InsResCode WaitPenDetach();
  InsResCode WaitPenAttach();
  InsResCode WaitPen();
  bool HasMyId(int32_t handle) const;
  bool IsMyPen(int32_t handle);

  // The steps of Update. Each returns 0 to go on and anything else to end the run with it.
  InsResCode ReadPen(UpdateRun& run);
  InsResCode SelectPackages(UpdateRun& run);
  InsResCode CompareWithPen(UpdateRun& run);
  InsResCode InstallFirmwarePackages(UpdateRun& run);
  InsResCode RereadPen(UpdateRun& run);
  InsResCode OpenChannel(UpdateRun& run);
  InsResCode InstallApplications(UpdateRun& run);
  InsResCode FinishUpdate(UpdateRun& run);

  // One package within its phase.
  InsResCode InstallFirmwarePackage(UpdateRun& run, BundlePackage& package);
  InsResCode InstallApplication(UpdateRun& run, BundlePackage& package);
  InsResCode CheckSignature(BundlePackage& package);
  InsResCode SettleFailure(InsResCode code);
  InsResCode AskToSkip(InsResCode code);
  InsResCode FinishPackage(const BundlePackage& package);

  // What the pen holds, and what to do about it.
  bool CachePenInfos(int32_t channel);
  InsResCode ReadContents(int32_t channel, const char* tag);
  bool ReadFirmwareVersion();
  bool ReadPenlets();
  PenContents Contents() const { return {m_fwVersion, m_penlets}; }
  bool CheckToInstall(BundlePackage& package);
  void AddProcessingItem(BundlePackage& package);
  void AddProcessingItem(const std::string& guid, BndPakTypes type, BundleGroup* group);

  // Transfers.
  InsResCode InstallApp(BundlePackage& package, int32_t channel);
  InsResCode WriteAttributes(BundlePackage& package, int32_t channel);
  InsResCode InstallFW(BundlePackage& package);
  InsResCode EnterDownloadMode();
  int32_t DownloadFirmware(const BundlePackage& package);

  // After the transfers.
  InsResCode UpdateGroupVersion(const std::vector<BundleGroup*>& groups, const std::vector<BundlePackage*>& packages,
                                int32_t channel);
  InsResCode UpdatePenletGroup(const PenletInfo& penlet, bool isCarried, const std::vector<BundleGroup*>& groups,
                               int32_t channel);
  InsResCode RaiseGroupVersion(const PenletInfo& penlet, const BundleGroup& group, int32_t channel);
  InsResCode VerifyPen(const PenUpdateCfg& cfg, int32_t channel);
  InsResCode VerifyGroupOnly(const std::string& guid, const BundleGroup& group);
  InsResCode VerifyFirmware(const BundlePackage& package);
  InsResCode VerifyApplication(const BundlePackage& package);

  // Removal.
  InsResCode ListPenlets(RemovalRun& run);
  InsResCode RemovePenlets(RemovalRun& run);
  void RemovePenlet(const RemovalRun& run, const PenletInfo& penlet, uint64_t number);

  // The host's callback.
  void Begin(CBundle* bundle, PenUpdateProgressCallback callback, void* userData);
  void SetCurrentPackage(BundlePackage& package);
  int32_t NotifyProgress(uint64_t itemDone, uint64_t itemTotal);
  int32_t NotifyError(InsResCode code);
  int32_t CallHost(int32_t penHandle, const PenUpdateProgressCallbackInfo& info);
  PenUpdateProgressCallbackInfo DescribePackage() const;
  InsResCode NotifyNonPenPackages(CBundle* bundle, const PenUpdateCfg* cfg, PenUpdateProgressCallback callback,
                                  void* userData);
  InsResCode NotifyNonPenPackage(BundlePackage& package);

  int32_t m_penHandle = 0;  // changes only while no transfer runs
  std::atomic<uint64_t> m_penId = 0;
  std::string m_penName;
  int32_t m_penType = 0;
  std::string m_fwVersion;
  std::map<std::string, PenletInfo> m_penlets;
  uint64_t m_doneBytes = 0;   // sizes of the packages already handled
  uint64_t m_totalBytes = 0;  // sizes of all packages of the run
  std::string m_curPakName;   // file name of the current package
  std::string m_curGroupName;
  BundlePackage* m_curPackage = nullptr;
  std::vector<PenUpdateProperty> m_curProperties;  // the current package's, as the host sees them
  int32_t m_startTime = 0;                         // of the current transfer, in seconds since the epoch
  CBundle* m_bundle = nullptr;
  std::atomic<bool> m_abort = false;      // read between steps and by the progress function
  std::atomic<bool> m_hostThrew = false;  // the callback let an exception escape: the run ends as aborted
  void* m_userData = nullptr;
  PenUpdateProgressCallback m_callback = nullptr;
  std::map<std::string, UpdaterProcessingItem> m_processingItems;

  static std::vector<CPenUpdater*> m_gUpdaters;  // every live updater, in order of construction
  static CLocker m_gLocker;                      // guards m_gUpdaters
  // Handles of pens in download mode that an updater has taken. Such a pen cannot tell its id, so a handle once taken
  // stays taken for the life of the process.
  static std::vector<int32_t> m_mDirtyHandles;
  static CLocker m_gHandleLocker;  // guards m_mDirtyHandles
};

#endif
