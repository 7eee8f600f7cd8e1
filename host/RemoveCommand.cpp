#include <fmt/format.h>

#include "host/Commands.h"
#include "host/RunSummary.h"

namespace {

RunEnd Conclude(Session& session, PenRun& run) {
  run.Packages().ConcludeRemoval();
  std::string detail = run.Result() < 0 ? DetailOf(LinesOf(session, run, "insRemoveGroup")) : "";
  RunEnd end = EndOf(run, detail);
  const std::vector<PackageRow>& rows = run.Packages().Rows();
  ShowPackages(session.console(), run, rows);
  if (end.code < 0) {
    session.Explain(end.code, end.detail);
  } else if (rows.empty()) {
    session.console().Line(
        fmt::format("  nothing to do: the pen holds no application of the group \"{}\"", session.options().group));
  }
  if (end.code == insAborted) ShowStateLeft(session.console(), run);
  session.WriteResult(run.Id(), end.code, end.status, end.detail, rows);
  return end;
}

}  // namespace

ExitStatus RemoveCommand(const Options& options) {
  return Session::Serve(options, "remove", [&](Session& session) {
    std::vector<Pen> pens = SelectPens(options.pens, options.all);
    Progress progress(session.console(), pens.size());
    RunContext context{options, session.events(), session.interrupts(), progress};
    std::vector<std::unique_ptr<PenRun>> runs;
    for (Pen& pen : pens) runs.push_back(std::make_unique<PenRun>(context, runs.size(), pen, false));
    session.RunOnPens(
        runs,
        [&](int32_t* penHandle, void* userData) {
          return insRemoveGroup(*penHandle, options.group.c_str(), PenRun::Callback, userData);
        },
        progress);

    std::vector<RunEnd> ends;
    for (const auto& run : runs) ends.push_back(Conclude(session, *run));
    return Combined(ends, false);
  });
}
