#include "host/Session.h"

#include <fmt/format.h>
#include <stdio.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "desk/RunPool.h"
#include "desk/Text.h"
#include "host/RunScreen.h"
#include "host/RunSummary.h"

namespace {

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

Session::Session(const Options& options, const std::string& command)
    : m_options(options),
      m_console(options.json, options.quiet),
      m_folder(RunFolder::Make()),
      m_log(OpenLog(options.log.empty() ? m_folder.LogFile() : options.log)),
      m_events(m_log.File()),
      m_keptEvents(m_folder.EventsFile(), std::ios::binary) {
  KeepOrder(command, {options.bundle, options.choice});
  if (options.json) m_events.AddSink(WriteToStandardOutput);
  m_events.AddSink([this](std::string_view line) { m_keptEvents << line << std::flush; });
}

void Session::KeepOrder(const std::string& command, InstallOrder order) const {
  if (!order.bundle.empty()) order.bundle = std::filesystem::absolute(order.bundle);
  for (std::string& file : order.choice.certificates) file = std::filesystem::absolute(file);
  m_folder.WriteDescription({{"command", command},
                             {"bundle", order.bundle},
                             {"log", m_log.File()},
                             {"started", TimeText()},
                             {"order", ToJson(order)}});
}

ExitStatus Session::Serve(const Options& options, const std::string& command,
                          const std::function<ExitStatus(Session&)>& body) {
  Session session(options, command);
  try {
    return body(session);
  } catch (const CallFailure& failure) {
    Explain(session.console(), failure.Code(), failure.Detail(), TextOf(failure.Code()).remedy, session.log().File());
    RunEnd end;
    end.code = failure.Code();
    end.status = failure.Status();
    end.detail = failure.Detail();
    session.events().WriteResult(nullptr, end);
    return failure.Status();
  } catch (const Failure& failure) {
    session.events().WriteFailure(failure.Status(), failure.what());
    Complain(failure.what());
    return failure.Status();
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
    runs.push_back(std::make_shared<PenRun>(pen, shared, m_log, std::vector<RunObserver*>{&screen, &m_events}, skip));
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
