// What one run knows, as two records: its pen and the run itself. A CPenUpdater is both and their one owner; the parts
// of the updater (pen handles, contents, checks, transfers, what follows them, reports) are handed the records that
// they work on. One thread uses them, except for the flags that say otherwise; while a transfer runs, that thread waits
// in the pen library, and the progress function reads them on whatever thread the transfer has.
#ifndef QUARVEL_INSTALLER_UPDATER_UPDATERUN_H
#define QUARVEL_INSTALLER_UPDATER_UPDATERUN_H

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "installer/QuarvelPublic.h"
#include "installer/bundle/Bundle.h"
#include "installer/updater/PenContents.h"

// A package or a group that the run handles.
struct UpdaterProcessingItem {
  BndPakTypes type = BndPakUnknown;
  BundlePackage* package = nullptr;  // null when only the group version is raised
  BundleGroup* group = nullptr;
};

// The pen: who it is, under which handle it stands now, and what it held when it was last read.
struct UpdaterPen {
  int32_t m_penHandle = 0;            // changes only while no transfer runs
  std::atomic<uint64_t> m_penId = 0;  // abort requests of other threads read it
  std::string m_penName;
  int32_t m_penType = 0;
  std::string m_fwVersion;
  std::map<std::string, PenletInfo> m_penlets;  // by GUID

  PenContents Contents() const { return {m_fwVersion, m_penlets}; }
};

// The run: what it installs for whom, how far it is, and what is left to do after the transfers.
struct UpdateRun {
  uint64_t m_doneBytes = 0;   // sizes of the packages already handled
  uint64_t m_totalBytes = 0;  // sizes of all packages of the run
  // The package in hand. Null and empty before the first one; reports then tell of the run alone.
  std::string m_curPakName;  // file name
  std::string m_curGroupName;
  BundlePackage* m_curPackage = nullptr;
  bool m_isVerified = false;                       // it passed its signature check
  std::vector<PenUpdateProperty> m_curProperties;  // as the host sees them
  int32_t m_startTime = 0;                         // of the current transfer, in seconds since the epoch
  CBundle* m_bundle = nullptr;
  CBundle::Certificates m_certificates;   // those in force when the run began, whatever is verified meanwhile
  std::atomic<bool> m_abort = false;      // any thread sets it; read between steps and by the progress function
  std::atomic<bool> m_hostThrew = false;  // the callback let an exception escape: the run ends as aborted
  void* m_userData = nullptr;
  PenUpdateProgressCallback m_callback = nullptr;
  std::map<std::string, UpdaterProcessingItem> m_processingItems;  // by GUID

  // What the host asked for, and what the bundle has for it.
  uint32_t m_flags = 0;  // InsFlags
  std::string m_group;
  int32_t m_penState = 0;  // when the run began
  std::vector<BundlePackage*> m_packages;

  bool Has(InsFlags flag) const { return (m_flags & static_cast<uint32_t>(flag)) != 0; }
  // A pen in download mode tells nothing about what it holds.
  bool Compares() const { return !Has(insFlagForce) && m_penState == pcPenStateNormal; }
};

#endif
