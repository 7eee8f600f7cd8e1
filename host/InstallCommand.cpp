#include <fmt/format.h>

#include "host/Commands.h"
#include "host/LoadedBundle.h"
#include "host/RunSummary.h"
#include "host/Text.h"

namespace {

// A pen that a stop or a failure may have left half-way.
bool MayBeHalfWay(InsResCode code) {
  return code == insAborted || code == insFirmwareFailed || code == insTimeout;
}

RunEnd Conclude(Session& session, PenRun& run) {
  std::vector<LogLine> lines = LinesOf(session, run, "insStartInstall");
  run.Packages().ConcludeInstall(run.Result(), lines);
  RunEnd end = EndOf(run, DetailOf(lines));
  ShowPackages(session.console(), run, run.Packages().Rows());
  if (end.code < 0) {
    session.Explain(end.code, end.detail);
  } else {
    session.console().Line(end.code == insNothingToDo ? "  nothing to do: the pen already holds everything" : "  done");
  }
  if (MayBeHalfWay(end.code)) ShowStateLeft(session.console(), run);
  session.WriteResult(run.Id(), end.code, end.status, end.detail, run.Packages().Rows());
  return end;
}

void RequirePerson(const Session& session) {
  if (session.options().onError != OnError::kAsk || session.console().CanAsk()) return;
  throw Failure(ExitStatus::kUsage, "--on-error ask needs a terminal; choose stop or skip.");
}

}  // namespace

ExitStatus InstallCommand(const Options& options) {
  return Session::Serve(options, "install", [&](Session& session) {
    RequirePerson(session);
    Configuration configuration(options);
    std::vector<Pen> pens = SelectPens(options.pens, options.all);
    std::vector<LoadedBundle> bundles;
    for (size_t i = 0; i < pens.size(); ++i) bundles.emplace_back(session, options.bundle, configuration);

    Progress progress(session.console(), pens.size());
    RunContext context{options, session.events(), session.interrupts(), progress};
    std::vector<std::unique_ptr<PenRun>> runs;
    bool firmware = ((*configuration).flags & insFlagFirmware) != 0;
    for (Pen& pen : pens) runs.push_back(std::make_unique<PenRun>(context, runs.size(), pen, firmware));
    session.RunOnPens(
        runs,
        [&](size_t i, int32_t* penHandle, void* userData) {
          return insStartInstall(penHandle, bundles[i].Handle(), &*configuration, PenRun::Callback, userData);
        },
        progress);

    std::vector<RunEnd> ends;
    for (const auto& run : runs) ends.push_back(Conclude(session, *run));
    session.console().Line(fmt::format("Log: {}", session.LogFile()));
    return Combined(ends, options.failIfCurrent);
  });
}
