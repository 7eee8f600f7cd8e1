// Who wants to know what becomes of runs: a screen, a page, a file of events, a database. Runs go on side by side, so
// any of these functions may be called from several threads at once, for one run by one thread at a time. What is
// passed lives for the call alone. Nothing may be thrown.
#ifndef QUARVEL_DESK_RUNOBSERVER_H
#define QUARVEL_DESK_RUNOBSERVER_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "desk/PackageList.h"
#include "desk/PenLeft.h"
#include "desk/ResultTexts.h"
#include "desk/WaitWatch.h"

class PenRun;
struct Job;

// A progress report of the library, with what it means for the whole run.
struct PackageProgress {
  const PackageRow& package;
  uint64_t runDone;   // bytes of the run; in a removal the application's number
  uint64_t runTotal;  // the same of all packages
  uint64_t rate;      // bytes a second of this transfer; 0 until it can be told
  std::optional<uint64_t> secondsLeft;
  bool begins;  // the first report of a transfer
  bool due;     // for who wants few: the package begins, is finished, or was not told for a fifth of a second
};

// The end of one run, or of a command that needs no pen.
struct RunEnd {
  InsResCode code = insSuccess;
  ExitStatus status = ExitStatus::kDone;
  std::string detail;  // what the log says of a failure
  std::vector<PackageRow> packages;
  std::optional<PenLeft> left;  // where the run may have left the pen half-way
  double seconds = 0;           // that the run took

  // What to do about it: about the state that the pen was left in, else about the failure.
  std::string_view Remedy() const { return left ? RemedyOf(*left) : TextOf(code).remedy; }
};

class RunObserver {
 public:
  RunObserver() = default;
  virtual ~RunObserver() = default;
  RunObserver(const RunObserver&) = delete;
  RunObserver& operator=(const RunObserver&) = delete;

  virtual void OnStarted(const PenRun& /*run*/) {}
  virtual void OnProgress(const PenRun& /*run*/, const PackageProgress& /*progress*/) {}
  // A package failed; whether it is skipped is decided next, which may take as long as a person thinks.
  virtual void OnFailed(const PenRun& /*run*/, const PackageRow& /*row*/) {}
  virtual void OnDecided(const PenRun& /*run*/, const PackageRow& /*row*/, bool /*skip*/) {}
  // The library waits for the pen to leave the bus or to come back: when the wait begins and once for each second.
  virtual void OnWait(const PenRun& /*run*/, const Wait& /*wait*/, bool /*begins*/) {}
  // On the thread of the run, as its last act.
  virtual void OnEnded(const PenRun& /*run*/, const RunEnd& /*end*/) {}
};

#endif
