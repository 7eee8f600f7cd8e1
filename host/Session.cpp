#include "host/Session.h"

#include <fmt/format.h>
#include <stdio.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "desk/RunPool.h"
#include "desk/RunTrace.h"
#include "desk/Text.h"
#include "host/RunScreen.h"
#include "host/RunSummary.h"

namespace {

// That a run waits for other programs that write the history.
constexpr std::chrono::milliseconds kPatience(500);

InstallOrder Whole(InstallOrder order) {
  if (!order.bundle.empty()) order.bundle = std::filesystem::absolute(order.bundle);
  for (std::string& file : order.choice.certificates) file = std::filesystem::absolute(file);
  return order;
}

constexpr std::string_view kStopping =
    "Stopping: the pens are asked to abort, which may take until they answer.\n"
    "Press Ctrl-C again to learn what a hard stop would risk.";
constexpr std::string_view kHardStop =
    "Still waiting for the pens. A third Ctrl-C ends this program at once. Then:\n"
    "  - a pen whose firmware is being replaced stays in download mode, without a firmware that works;\n"
    "  - an application that is being sent is missing or incomplete on the pen.\n"
    "To recover, disconnect and reconnect the pen, look at it with `quarvel pens`, and start the same install again;\n"
    "it goes on with what the pen still lacks.";

void WriteToStandardOutput(std::string_view line) {
  fwrite(line.data(), 1, line.size(), stdout);
  fflush(stdout);
}

}  // namespace

// Without a log or trace where it is asked for no run begins, and nothing is left of it.
template <typename Open>
auto Session::Opened(Open open) const {
  try {
    return open();
  } catch (const Failure&) {
    m_folder.Remove();
    throw;
  }
}

Session::Session(const Options& options, const std::string& command)
    : m_options(options),
      m_console(options.json, options.quiet),
      m_history(kPatience),
      m_folder(m_history.NewFolder()),
      m_log(Opened([&] { return OpenLog(options.log.empty() ? m_folder.LogFile() : options.log); })),
      m_trace(Opened([&] { return RecordRun(options.trace, m_folder.TraceFile()); })),
      m_run(m_history.Begin(m_folder, {command, m_log.File(), m_log.Begin(), m_trace},
                            Whole({options.bundle, options.choice}))),
      m_events(m_log.File()),
      m_keptEvents(m_folder.EventsFile(), std::ios::binary) {
  if (options.json) m_events.AddSink(WriteToStandardOutput);
  m_events.AddSink([this](std::string_view line) { m_keptEvents << line << std::flush; });
  m_interrupts.BeforeForcedEnd([this](ExitStatus status, const char* words) { m_run->EndByForce(status, words); });
}

Session::~Session() {
  m_interrupts.BeforeForcedEnd(nullptr);
}

void Session::KeepOrder(const InstallOrder& order) {
  m_run->Order(Whole(order));
}

// The history never stops a run; what is wrong with it is told once.
void Session::TellProblem() {
  std::string problem = m_run->Problem();
  if (problem.empty()) problem = m_history.TakeProblem();
  if (!problem.empty()) Complain(fmt::format("warning: {}.", problem));
}

ExitStatus Session::Serve(const Options& options, const std::string& command,
                          const std::function<ExitStatus(Session&)>& body) {
  Session session(options, command);
  ExitStatus status = session.Attempt([&] { return body(session); });
  session.m_run->End(status, session.m_stopped);
  session.TellProblem();
  return status;
}

ExitStatus Session::Attempt(const std::function<ExitStatus()>& part) {
  try {
    return part();
  } catch (const CallFailure& failure) {
    Explain(m_console, failure.Code(), failure.Detail(), TextOf(failure.Code()).remedy, m_log.File());
    RunEnd end;
    end.code = failure.Code();
    end.status = failure.Status();
    end.detail = failure.Detail();
    m_events.WriteResult(nullptr, end);
    m_stopped = fmt::format("{} ({})", failure.what(), failure.Code());
    return failure.Status();
  } catch (const Failure& failure) {
    m_events.WriteFailure(failure.Status(), failure.what());
    Complain(failure.what());
    m_stopped = failure.what();
    return failure.Status();
  } catch (const std::exception& error) {
    m_run->End(ExitStatus::kInternal, error.what());
    throw;
  }
}

std::vector<RunEnd> Session::RunOnPens(const std::vector<Pen>& pens, const Job& job) {
  Progress progress(m_console, pens.size());
  RunScreen screen(m_console, progress, m_log.File());
  auto shared = std::make_shared<const Job>(job);
  auto skip = [&](const PenRun& run, const PackageRow& row) {
    if (m_options.onError == OnError::kAsk) return screen.AskToSkip(run, row);
    return m_options.onError == OnError::kSkip;
  };
  std::vector<std::shared_ptr<PenRun>> runs;
  for (const Pen& pen : pens) {
    runs.push_back(
        std::make_shared<PenRun>(pen, shared, m_log, std::vector<RunObserver*>{&screen, &m_events, m_run.get()}, skip));
  }
  RunPool pool;
  m_interrupts.Attend([&](int count) {
    progress.Problem(count == 1 ? kStopping : kHardStop);
    pool.StopAll();
  });
  for (const auto& run : runs) pool.Start(run);
  pool.Wait();
  m_interrupts.Attend([](int) {});
  progress.Finish();
  std::vector<RunEnd> ends;
  for (const auto& run : runs) ends.push_back(run->End());
  return ends;
}
