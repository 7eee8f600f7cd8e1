// One run on one pen: an install (Update) or the removal of a group (Remove). The installer front makes an updater for
// each call on the caller's thread, and it is used by that thread alone, except that other threads may ask it to abort
// and that the pen library reports a transfer's progress on whatever thread it transfers on. From construction to
// destruction it stands in a registry through which abort requests reach it.
//
// The updater is the run and its pen (UpdateRun.h). Its operations stand in one source for each subject, named beside
// them; what several sources need of a subject is in that subject's header.
#ifndef QUARVEL_INSTALLER_UPDATER_PENUPDATER_H
#define QUARVEL_INSTALLER_UPDATER_PENUPDATER_H

#include <cstdint>
#include <string>
#include <vector>

#include "Common/Locker.h"
#include "installer/updater/ProgressGate.h"
#include "installer/updater/UpdateRun.h"

class CPenUpdater : public UpdaterPen, public UpdateRun {
 public:
  CPenUpdater();
  ~CPenUpdater();
  CPenUpdater(const CPenUpdater&) = delete;
  CPenUpdater& operator=(const CPenUpdater&) = delete;

  // Installs what `bundle` has for the pen; `*penHandle` is rewritten when the pen comes back under another handle.
  // Without a pen (null or 0) the packages that stay on the desktop are reported instead. (UpdateDriver.cpp)
  InsResCode Update(int32_t* penHandle, CBundle* bundle, const PenUpdateCfg* cfg, PenUpdateProgressCallback callback,
                    void* userData);
  InsResCode NotifyNonPenPackages(CBundle* bundle, const PenUpdateCfg* cfg, PenUpdateProgressCallback callback,
                                  void* userData);
  // Removes every penlet of a group; without a group name none. Failed penlets show in the log and in their record
  // alone. (GroupRemoval.cpp)
  InsResCode Remove(int32_t penHandle, const char* groupName, PenUpdateProgressCallback callback, void* userData);

  // Abort requests: of this updater, of the first one for a pen id, of all. Any thread. (PenUpdater.cpp)
  void Abort();
  static InsResCode Abort(uint64_t penId);
  static InsResCode AbortAll();

  // The pen's handle. The waits poll once a second, up to 60 seconds, and return 0 also when an abort was asked for.
  // SetDirtyHandle claims the handle of a pen in download mode; false when one has it already. (PenHandles.cpp)
  static bool SetDirtyHandle(int32_t handle);
  int32_t RefreshPenHandle();
  InsResCode WaitPenDetach();
  InsResCode WaitPenAttach();
  InsResCode WaitPen();

  // What the pen holds, over the given channel or, for 0, one of its own; whether a package goes onto it, and what is
  // remembered of it. (PackageChecks.cpp)
  bool CachePenInfos(int32_t channel);
  bool CheckToInstall(BundlePackage& package);
  void AddProcessingItem(BundlePackage& package);
  void AddProcessingItem(const std::string& guid, BndPakTypes type, BundleGroup* group);

  // Transfers of one package. `context` of the pen library's progress function is the run's gate. (Transfer.cpp)
  InsResCode InstallApp(BundlePackage& package, int32_t channel);
  InsResCode InstallFW(BundlePackage& package);
  static int32_t OnProgressCallback(int32_t penHandle, uint64_t totalBytes, uint64_t doneBytes, void* context);

  // After the transfers. (PostInstall.cpp)
  InsResCode UpdateGroupVersion(const std::vector<BundleGroup*>& groups, const std::vector<BundlePackage*>& packages,
                                int32_t channel);
  InsResCode VerifyPen(int32_t channel);

  // Reports to the host; a non-zero answer stops the run. (Notification.cpp)
  int32_t NotifyProgress(uint64_t itemDone, uint64_t itemTotal);
  int32_t NotifyError(InsResCode code);

 private:
  RunGate m_gate{*this};

  static std::vector<CPenUpdater*>& m_gUpdaters;  // every live updater, in order of construction
  static CLocker m_gLocker;                       // guards m_gUpdaters
  // Handles of pens in download mode that an updater has taken. Such a pen cannot tell its id, so a handle once taken
  // stays taken for the life of the process.
  static std::vector<int32_t>& m_mDirtyHandles;
  static CLocker m_gHandleLocker;  // guards m_mDirtyHandles
};

#endif
