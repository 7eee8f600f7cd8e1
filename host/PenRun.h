// One pen's run: the call of the library on a thread of its own, what the callback tells meanwhile, and the result.
// Made and read by the main thread; while Execute runs, only Poll, RequestAbort and IsDone may be called beside it.
#ifndef QUARVEL_HOST_PENRUN_H
#define QUARVEL_HOST_PENRUN_H

#include <atomic>
#include <functional>
#include <mutex>
#include <span>
#include <string>

#include "host/Console.h"
#include "host/Events.h"
#include "host/Interrupts.h"
#include "host/Options.h"
#include "host/PackageList.h"
#include "host/PenList.h"
#include "host/Progress.h"
#include "host/Text.h"
#include "host/WaitWatch.h"

// What all runs of a command share; outlives them.
struct RunContext {
  const Options& options;
  Events& events;
  Interrupts& interrupts;
  Progress& progress;
};

class PenRun {
 public:
  // The call of the library: takes the pen's handle, which it may change, and the callback's user data.
  using Work = std::function<InsResCode(int32_t* penHandle, void* userData)>;

  // `line` is the pen's line on the screen; `firmware` says that firmware may be installed.
  PenRun(RunContext& context, size_t line, Pen pen, bool firmware);

  void Execute(const Work& work);
  static int32_t Callback(int32_t penHandle, const PenUpdateProgressCallbackInfo* info, void* userData);

  // Looks whether the library waits for the pen; called some times a second with the handles on the bus. Tells it when
  // a wait begins and once for each second.
  void Poll(std::span<const int32_t> handles);
  void RequestAbort() const;
  bool IsDone() const { return m_done; }

  // After the run.
  bool Began() const { return m_began; }  // an interrupt may come before
  const Pen& OfPen() const { return m_pen; }
  std::string Id() const { return PenIdText(*m_pen.id); }
  InsResCode Result() const { return m_result; }
  int32_t Handle() const { return m_handle; }
  const std::string& LogThread() const { return m_logThread; }
  PackageList& Packages() { return m_packages; }

 private:
  using Info = PenUpdateProgressCallbackInfo;
  using Time = std::chrono::steady_clock::time_point;

  int32_t OnReport(int32_t penHandle, const Info& info);
  void OnProgress(const Info& info, const PackageRow& row);
  int32_t OnError(const PackageRow& row);
  bool DecideToSkip(const PackageRow& row);
  void TellPackage(const Info& info, const PackageRow& row);
  void TellWait(const Wait& wait);
  double Rate(const Info& info, Time now);

  RunContext& m_context;
  size_t m_line;
  Pen m_pen;
  PackageList m_packages;
  std::string m_logThread;
  InsResCode m_result = insAborted;
  int32_t m_handle;
  bool m_began = false;
  std::atomic<bool> m_done{false};

  // The transfer that is measured, and when it was last told.
  std::string m_measured;
  Time m_measuredFrom{};
  uint64_t m_measuredBytes = 0;
  Time m_lastEvent{};

  std::mutex m_waitLock;  // guards what follows
  WaitWatch m_watch;
  Wait m_toldWait;
};

#endif
