// The history of this machine's runs: an embedded database beside the runs' folders. A run's journal is written first,
// by the run itself; the database takes it up when the run begins, when it ends, and whenever somebody asks, so that it
// catches up with runs that were killed or that it could not be written for. Kept runs are bounded by age and size.
//
// Any thread may call. Several programs may share one state folder; none waits for another longer than its patience,
// and nothing that goes wrong with the database stops a run: it becomes a sentence for the person at the desk.
#ifndef QUARVEL_DESK_HISTORY_H
#define QUARVEL_DESK_HISTORY_H

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "desk/KeptRun.h"
#include "desk/RunFolder.h"
#include "desk/RunRecord.h"

class HistoryDatabase;

// Which runs are asked for; the newest first.
struct HistoryFilter {
  std::optional<int64_t> number = std::nullopt;
  std::vector<std::string> pens{};  // as PenIdText; empty: all
  std::string since{};              // as TimeText; empty: from the first
  bool failed = false;              // only those that failed or ended without a result
  bool readers = false;             // also those that only looked: verify, and plans
  size_t limit = 0;                 // 0: all
  bool lines = false;               // with the log's lines

  bool Admits(const RunRecord& run) const;
};

struct HistoryBounds {
  int64_t days = 365;
  int64_t bytes = 256 << 20;  // of folders and database

  // QUARVEL_HISTORY_DAYS and QUARVEL_HISTORY_BYTES; `problem` tells of one that is no number.
  static HistoryBounds FromEnvironment(std::string& problem);
};

class History {
 public:
  // Of this user on this machine.
  explicit History(std::chrono::milliseconds patience);
  History(std::filesystem::path state, HistoryBounds bounds, std::chrono::milliseconds patience);
  ~History();
  History(const History&) = delete;
  History& operator=(const History&) = delete;

  // A run begins, in a folder from NewFolder, which its log and its trace may need before.
  RunFolder NewFolder();
  std::unique_ptr<KeptRun> Begin(RunFolder folder, const KeptRun::Start& start, const InstallOrder& order);

  // The runs that the filter admits, the newest first. Where the database cannot be used they come from the folders,
  // without numbers, and Problem says so.
  std::vector<RunRecord> Find(const HistoryFilter& filter);
  RunFolder FolderOf(const RunRecord& run) const { return RunFolder::Named(m_state, run.folder); }

  // What went wrong first, as one sentence; empty when nothing did. Asking takes it.
  std::string TakeProblem();

 private:
  friend class KeptRun;
  // A run has ended: takes up what runs have written since, and drops what is too old or too much.
  void TakeUp(const RunFolder& ended);
  template <typename Use>
  bool WithDatabase(Use use);
  void CatchUp(HistoryDatabase& database);
  void Mend();
  void Prune();
  std::vector<RunRecord> FromFolders(const HistoryFilter& filter) const;
  void Tell(const std::string& problem);

  std::filesystem::path m_state;
  HistoryBounds m_bounds;
  std::chrono::milliseconds m_patience;
  std::mutex m_lock;  // guards what follows
  std::unique_ptr<HistoryDatabase> m_database;
  std::string m_problem;
};

#endif
