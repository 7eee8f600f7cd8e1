#include <fmt/format.h>

#include <algorithm>

#include "host/Commands.h"
#include "host/LoadedBundle.h"
#include "host/RunSummary.h"
#include "host/Text.h"
#include "platform/Tessvik.h"

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

// While it waits for a pen of type 1 to return, the library cannot tell it from another one in download mode.
void WarnOfPenInDownloadMode(const Console& console) {
  std::vector<Pen> pens = ConnectedPens();
  bool anonymous = std::any_of(pens.begin(), pens.end(),
                               [](const Pen& pen) { return !pen.id && pen.state == pcPenStateFirmwareDownload; });
  if (!anonymous) return;
  console.Problem(
      "A pen in download mode is connected that tells no id; it may get the firmware that is meant for another pen. "
      "Disconnect it if you did not mean that.");
}

}  // namespace

ExitStatus InstallCommand(const Options& options) {
  return Session::Serve(options, "install", [&](Session& session) {
    RequirePerson(session);
    Configuration configuration(options);
    std::vector<Pen> pens = SelectPens(options.pens, options.all);
    bool firmware = ((*configuration).flags & insFlagFirmware) != 0;
    if (firmware) WarnOfPenInDownloadMode(session.console());
    LoadedBundle bundle(session, options.bundle, configuration);

    Progress progress(session.console(), pens.size());
    RunContext context{options, session.events(), session.interrupts(), progress};
    std::vector<std::unique_ptr<PenRun>> runs;
    for (Pen& pen : pens) runs.push_back(std::make_unique<PenRun>(context, runs.size(), pen, firmware));
    session.RunOnPens(
        runs,
        [&](int32_t* penHandle, void* userData) {
          return insStartInstall(penHandle, bundle.Handle(), &*configuration, PenRun::Callback, userData);
        },
        progress);

    std::vector<RunEnd> ends;
    for (const auto& run : runs) ends.push_back(Conclude(session, *run));
    bool told = std::any_of(ends.begin(), ends.end(), [](const RunEnd& end) { return end.code < 0; });
    if (!told) session.console().Line(fmt::format("Log: {}", session.LogFile()));
    return Combined(ends, options.failIfCurrent);
  });
}
