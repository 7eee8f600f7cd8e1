#include "desk/PenRun.h"

#include <fmt/format.h>

#include <algorithm>

#include "desk/ResultTexts.h"

namespace {

uint64_t RunDone(const PenUpdateProgressCallbackInfo& info) {
  return info.doneCount + info.itemDone;
}

}  // namespace

PenRun::PenRun(Pen pen, std::shared_ptr<const Job> job, const LogReader& log, std::vector<RunObserver*> observers,
               Decision skipFailing)
    : m_pen(std::move(pen)),
      m_job(std::move(job)),
      m_log(log),
      m_observers(std::move(observers)),
      m_skipFailing(std::move(skipFailing)),
      m_handle(m_pen.handle),
      m_watch(m_handle, m_job->firmware) {}

void PenRun::Execute() {
  for (RunObserver* observer : m_observers) observer->OnStarted(*this);
  InsResCode result = insAborted;
  Time begin = std::chrono::steady_clock::now();
  uint64_t mark = m_log.Mark();
  // A stop that came before the library knows of the run would be lost on it.
  m_began = !m_stop;
  if (m_began) result = m_job->call(&m_handle, Callback, this);
  {
    std::lock_guard<std::mutex> guard(m_waitLock);
    m_done = true;  // no wait is told from here on
  }
  Conclude(result, mark);
  m_end.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  for (RunObserver* observer : m_observers) observer->OnEnded(*this, m_end);
}

// Nothing may be thrown through the library.
int32_t PenRun::Callback(int32_t penHandle, const PenUpdateProgressCallbackInfo* info, void* userData) {
  try {
    return static_cast<PenRun*>(userData)->OnReport(penHandle, *info);
  } catch (...) {
    return 1;
  }
}

int32_t PenRun::OnReport(int32_t penHandle, const Info& info) {
  bool known = m_packages.IsFinished(TextOrEmpty(info.packageFile));
  const PackageRow& row = m_packages.Take(info);
  if (info.result != insSuccess) return OnError(row);
  {
    std::lock_guard<std::mutex> guard(m_waitLock);
    m_watch.OnReport(penHandle, row.fileType, info.itemDone >= info.itemTotal);
    m_toldWait = {};
  }
  if (!known) TellProgress(info, row);
  return m_stop ? 1 : 0;
}

// Bytes a second of the transfer that runs; 0 until a second report gives a measure.
double PenRun::Rate(const Info& info, Time now) {
  if (m_measured != TextOrEmpty(info.packageFile)) {
    m_measured = TextOrEmpty(info.packageFile);
    m_measuredFrom = now;
    m_measuredBytes = info.itemDone;
  }
  double seconds = std::chrono::duration<double>(now - m_measuredFrom).count();
  bool measurable = seconds > 0.05 && info.itemDone > m_measuredBytes;
  return measurable ? static_cast<double>(info.itemDone - m_measuredBytes) / seconds : 0;
}

void PenRun::TellProgress(const Info& info, const PackageRow& row) {
  Time now = std::chrono::steady_clock::now();
  bool begins = m_measured != row.path;
  double rate = Rate(info, now);
  uint64_t remaining = info.totalCount > RunDone(info) ? info.totalCount - RunDone(info) : 0;
  std::optional<uint64_t> left;
  if (rate >= 1) left = static_cast<uint64_t>(static_cast<double>(remaining) / rate);
  bool due = row.finished || begins || now - m_lastDue >= std::chrono::milliseconds(200);
  if (due) m_lastDue = now;
  PackageProgress progress{row, RunDone(info), info.totalCount, static_cast<uint64_t>(rate), left, begins, due};
  for (RunObserver* observer : m_observers) observer->OnProgress(*this, progress);
}

int32_t PenRun::OnError(const PackageRow& row) {
  for (RunObserver* observer : m_observers) observer->OnFailed(*this, row);
  bool skip = !m_stop && DecideToSkip(row);
  for (RunObserver* observer : m_observers) observer->OnDecided(*this, row, skip);
  return skip ? 0 : 1;
}

// To go on after a failed signature check would install the package unverified: that is never done. Only a
// removal reports insPenFailure; the library goes on with the next application by itself then, and so does the run.
bool PenRun::DecideToSkip(const PackageRow& row) {
  if (row.error == insPenFailure) return true;
  return row.error != insPackageUnsigned && m_skipFailing(*this, row);
}

void PenRun::Poll(std::span<const int32_t> handles) {
  std::lock_guard<std::mutex> guard(m_waitLock);
  if (m_done) return;
  Wait wait = m_watch.Poll(handles, std::chrono::steady_clock::now());
  if (wait.what != WaitFor::kNothing && wait != m_toldWait) {
    bool begins = wait.what != m_toldWait.what;
    for (RunObserver* observer : m_observers) observer->OnWait(*this, wait, begins);
  }
  m_toldWait = wait;
}

void PenRun::RequestStop() {
  m_stop = true;
  if (!m_done) insAbort(*m_pen.id);
}

// A run with code 0 in which a package failed and was passed over ends with that failure's status.
void PenRun::Conclude(InsResCode result, uint64_t mark) {
  bool needsLog = m_began && (result < 0 || (!m_job->removes && m_packages.NeedLog()));
  if (needsLog) m_lines = m_log.LinesOfCall(LogThreadName(), m_job->function, fmt::format("-Ret={}, ", result), mark);
  if (m_job->removes) {
    m_packages.ConcludeRemoval();
  } else {
    bool stopped = result < 0 && m_job->expect;
    m_packages.ConcludeInstall(result, m_job->forced, m_lines,
                               stopped ? m_job->expect(m_pen) : std::vector<PackageRow>());
  }
  InsResCode passedOver = m_packages.FirstError();
  bool clean = result != insSuccess || passedOver == insSuccess;
  m_end.code = result;
  m_end.status = StatusOf(clean ? result : passedOver);
  if (result < 0) m_end.detail = DetailOf(m_lines.lines);
  m_end.packages = m_packages.Rows();
  if (m_began && MayBeHalfWay(result)) m_end.left = LookAgain(m_pen, m_handle);
}

// A removal that fails leaves a pen as it can be seen; only a stop leaves open how far it came.
bool PenRun::MayBeHalfWay(InsResCode result) const {
  bool firmware = result == insFirmwareFailed || result == insTimeout;
  auto reached = [](const PackageRow& row) { return row.outcome != "not reached"; };
  bool lost = result == insPenFailure && std::any_of(m_end.packages.begin(), m_end.packages.end(), reached);
  return result == insAborted || (!m_job->removes && (firmware || lost));
}
