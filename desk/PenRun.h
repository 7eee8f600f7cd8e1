// One pen's run: the call of the library, what the callback tells meanwhile, and the end. Knows no terminal and no
// command line: what happens goes to observers, and whether a failing package is skipped is asked of who started the
// run. Execute runs on a thread of its own, of a RunPool's as a rule; beside it only Poll, RequestStop, IsDone and what
// never changes (pen, job, id) may be called. The rest is read when it is done.
#ifndef QUARVEL_DESK_PENRUN_H
#define QUARVEL_DESK_PENRUN_H

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "desk/Job.h"
#include "desk/LogReader.h"
#include "desk/PackageList.h"
#include "desk/PenList.h"
#include "desk/RunObserver.h"
#include "desk/Text.h"
#include "desk/WaitWatch.h"

class PenRun {
 public:
  // Whether to skip a failing package and go on; called on the thread of the run, which waits.
  using Decision = std::function<bool(const PenRun&, const PackageRow&)>;

  // The pen must have an id. Log and observers outlive the run.
  PenRun(Pen pen, std::shared_ptr<const Job> job, const LogReader& log, std::vector<RunObserver*> observers,
         Decision skipFailing);
  PenRun(const PenRun&) = delete;
  PenRun& operator=(const PenRun&) = delete;

  void Execute();
  // Looks whether the library waits for the pen; called some times a second with the handles on the bus.
  void Poll(std::span<const int32_t> handles);
  // The run ends as soon as it can; one that has not begun does not begin. To be called again once a second until the
  // run is done, since the library forgets an abort that comes while a run only begins.
  void RequestStop();
  bool IsStopRequested() const { return m_stop; }
  bool IsDone() const { return m_done; }

  const Pen& OfPen() const { return m_pen; }
  const Job& OfJob() const { return *m_job; }
  std::string Id() const { return PenIdText(*m_pen.id); }

  // After the run.
  int32_t Handle() const { return m_handle; }  // the pen's last
  const RunEnd& End() const { return m_end; }
  // The lines that the run wrote into the library's log; none when the log was not needed or cannot be read.
  const std::vector<LogLine>& LogLines() const { return m_lines.lines; }

 private:
  using Info = PenUpdateProgressCallbackInfo;
  using Time = std::chrono::steady_clock::time_point;

  static int32_t Callback(int32_t penHandle, const Info* info, void* userData);
  int32_t OnReport(int32_t penHandle, const Info& info);
  int32_t OnError(const PackageRow& row);
  bool DecideToSkip(const PackageRow& row);
  void TellProgress(const Info& info, const PackageRow& row);
  double Rate(const Info& info, Time now);
  void Conclude(InsResCode result, uint64_t mark);
  bool MayBeHalfWay(InsResCode result) const;

  Pen m_pen;
  std::shared_ptr<const Job> m_job;
  const LogReader& m_log;
  std::vector<RunObserver*> m_observers;
  Decision m_skipFailing;
  PackageList m_packages;
  CallLines m_lines;
  RunEnd m_end;
  int32_t m_handle;
  bool m_began = false;  // a stop may be requested before
  std::atomic<bool> m_stop{false};
  std::atomic<bool> m_done{false};

  // The transfer that is measured, and when it was last due to be told.
  std::string m_measured;
  Time m_measuredFrom{};
  uint64_t m_measuredBytes = 0;
  Time m_lastDue{};

  std::mutex m_waitLock;  // guards what follows
  WaitWatch m_watch;
  Wait m_toldWait;
};

#endif
