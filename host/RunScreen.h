// What people see of runs: each pen's moving line, the lasting lines beside it, the questions, and each pen's table as
// soon as its run is over. One per command; outlives its runs.
#ifndef QUARVEL_HOST_RUNSCREEN_H
#define QUARVEL_HOST_RUNSCREEN_H

#include <map>
#include <mutex>
#include <string>

#include "desk/RunObserver.h"
#include "host/Console.h"
#include "host/Progress.h"

class RunScreen : public RunObserver {
 public:
  RunScreen(const Console& console, Progress& progress, std::string logFile)
      : m_console(console), m_progress(progress), m_logFile(std::move(logFile)) {}

  // Asks the person whether the package is to be skipped. A stop of the run ends the question.
  bool AskToSkip(const PenRun& run, const PackageRow& row);

  void OnStarted(const PenRun& run) override;
  void OnProgress(const PenRun& run, const PackageProgress& progress) override;
  void OnFailed(const PenRun& run, const PackageRow& row) override;
  void OnWait(const PenRun& run, const Wait& wait, bool begins) override;
  void OnEnded(const PenRun& run, const RunEnd& end) override;

 private:
  size_t LineOf(const PenRun& run);

  const Console& m_console;
  Progress& m_progress;
  std::string m_logFile;
  std::mutex m_lock;  // guards what follows
  std::map<const PenRun*, size_t> m_lines;
};

#endif
