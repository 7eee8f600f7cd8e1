// One run as it is kept: writes into its folder's journal what the run was to do, each pen when it begins and ends, and
// the end, each as one line when it is known. So a kill, a full disk or a database that cannot be written lose nothing
// that had ended; the history takes the journal up whenever it can. Made by a History, which outlives it. Any thread
// may call.
#ifndef QUARVEL_DESK_KEPTRUN_H
#define QUARVEL_DESK_KEPTRUN_H

#include <mutex>
#include <string>
#include <string_view>

#include "desk/RunFolder.h"
#include "desk/RunObserver.h"
#include "desk/RunRecord.h"

class History;

class KeptRun : public RunObserver {
 public:
  // What is known when a run begins.
  struct Start {
    std::string command;
    std::string log;       // the log's file
    uint64_t logFrom = 0;  // where this run's lines begin in it
    std::string trace;
  };

  KeptRun(History& history, RunFolder folder, const Start& start);
  ~KeptRun() override;

  // What the pens that begin from now on are to get. The bundle's size is kept too, and of one that is soon read the
  // digest.
  void Order(const InstallOrder& order);
  void OnStarted(const PenRun& run) override;
  void OnEnded(const PenRun& run, const RunEnd& end) override;
  // The run is over. Only the first end counts.
  void End(ExitStatus status, std::string_view sentence = "");
  // The process is about to end at once: the journal gets a line, and nothing is waited for.
  void EndByForce(ExitStatus status, std::string_view sentence);

  const RunFolder& Folder() const { return m_folder; }
  // Why the run is not kept or not whole; empty when all is well.
  std::string Problem();

 private:
  bool Append(const Json& line);

  History& m_history;
  RunFolder m_folder;
  std::mutex m_lock;  // guards what follows
  int m_journal = -1;
  bool m_ended = false;
  std::string m_problem;
};

#endif
