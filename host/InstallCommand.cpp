#include <fmt/format.h>

#include <algorithm>

#include "desk/LoadedBundle.h"
#include "desk/PenList.h"
#include "host/Commands.h"
#include "host/RunSummary.h"
#include "host/Session.h"
#include "platform/Tessvik.h"

namespace {

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
    auto configuration = std::make_shared<const Configuration>(options.choice);
    std::vector<Pen> pens = SelectPens(options.pens, options.all);
    if (configuration->TakesFirmware()) WarnOfPenInDownloadMode(session.console());
    auto bundle = std::make_shared<const LoadedBundle>(session.log(), options.bundle, *configuration);
    std::vector<RunEnd> ends = session.RunOnPens(pens, InstallJob(options.bundle, bundle, configuration));
    bool told = std::any_of(ends.begin(), ends.end(), [](const RunEnd& end) { return end.code < 0; });
    if (!told) session.console().Line(fmt::format("Log: {}", session.log().File()));
    return Combined(ends, options.failIfCurrent);
  });
}
