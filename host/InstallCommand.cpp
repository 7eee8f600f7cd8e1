#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "desk/FreshCopy.h"
#include "desk/LoadedBundle.h"
#include "desk/PenList.h"
#include "desk/Text.h"
#include "host/Commands.h"
#include "host/InstallPlan.h"
#include "host/Loading.h"
#include "host/Progress.h"
#include "host/RunSummary.h"
#include "host/Session.h"
#include "platform/Tessvik.h"

namespace {

void RequirePerson(const Session& session) {
  if (session.options().onError != OnError::kAsk || session.console().CanAsk()) return;
  throw Failure(ExitStatus::kUsage, "--on-error ask needs a terminal; choose stop or skip.");
}

// While it waits for a pen of type 1 to return, the library cannot tell it from another one in download mode.
void WarnOfPenInDownloadMode(const Console& console, const std::vector<Pen>& connected) {
  bool anonymous = std::any_of(connected.begin(), connected.end(),
                               [](const Pen& pen) { return !pen.id && pen.state == pcPenStateFirmwareDownload; });
  if (!anonymous) return;
  console.Problem(
      "A pen in download mode is connected that tells no id; it may get the firmware that is meant for another pen. "
      "Disconnect it if you did not mean that.");
}

Rates RatesSeen(History& history) {
  constexpr size_t runs = 10;
  Rates rates;
  for (const RunRecord& run : history.Find({.limit = runs})) {
    std::ifstream events(history.FolderOf(run).EventsFile(), std::ios::binary);
    rates.AddEvents(events);
  }
  return rates;
}

void ShowPlans(Session& session, const std::vector<PenPlan>& plans, const Rates& rates) {
  for (const PenPlan& plan : plans) {
    session.console().Line(PlanText(plan, rates));
    session.events().Write("plan", ToJson(plan));
  }
}

// `quarvel install --plan`: everything is looked at and nothing is touched.
ExitStatus TellPlan(Session& session, InstallPlan& planner, std::vector<Pen> pens, const std::vector<Pen>& connected) {
  if (session.options().all) {
    std::copy_if(connected.begin(), connected.end(), std::back_inserter(pens),
                 [](const Pen& pen) { return !pen.id.has_value(); });
  }
  Rates rates = RatesSeen(session.history());
  std::vector<PenPlan> plans = planner.For(std::move(pens), connected.size(), rates);
  ShowPlans(session, plans, rates);
  ExitStatus status = ExitStatus::kDone;
  for (const PenPlan& plan : plans) {
    if (status == ExitStatus::kDone) status = StatusOf(ResultOf(plan));
  }
  return status;
}

// Firmware that cannot come back is refused, and a person who is there is asked before firmware is replaced.
// The pens get the contents that were read for it.
void ConfirmFirmware(Session& session, InstallPlan& planner, std::vector<Pen>& pens, size_t connected) {
  bool asks = session.console().CanAsk() && !session.options().json && !session.options().yes;
  if (!asks && connected <= kPensServed) return;
  Rates rates = RatesSeen(session.history());
  std::vector<PenPlan> plans = planner.For(pens, connected, rates);
  std::transform(plans.begin(), plans.end(), pens.begin(), [](const PenPlan& plan) { return plan.pen; });
  auto replaced = std::find_if(plans.begin(), plans.end(), [](const PenPlan& plan) { return plan.plan.firmware; });
  if (replaced == plans.end()) return;
  if (connected > kPensServed) throw Failure(ExitStatus::kPen, CrowdProblem(connected));
  for (const PenPlan& plan : plans) session.console().Line(PlanText(plan, rates));
  Progress progress(session.console(), 0);
  char answer = progress.Ask("Replace firmware as planned? [y/N] ", [] { return false; });
  if (answer != 'y' && answer != 'Y') throw Failure(ExitStatus::kAborted, "Stopped; no pen was touched.");
}

ExitStatus Install(Session& session, const std::string& file) {
  const Options& options = session.options();
  auto configuration = std::make_shared<const Configuration>(options.choice);
  std::vector<Pen> connected = ConnectedPens();
  std::vector<Pen> pens = SelectPens(options.pens, options.all);
  if (configuration->TakesFirmware()) WarnOfPenInDownloadMode(session.console(), connected);
  auto bundle = LoadTelling(session, file, *configuration);
  auto planner = std::make_shared<InstallPlan>(file, options.choice);
  if (options.plan) return TellPlan(session, *planner, pens, connected);
  if (configuration->TakesFirmware()) ConfirmFirmware(session, *planner, pens, connected.size());

  std::string note = CrowdNote(connected.size());
  if (!note.empty()) session.console().Problem(note);
  Job job = InstallJob(options.bundle, bundle, configuration);
  job.expect = [planner](const Pen& pen) { return planner->PackagesFor(pen); };
  std::vector<RunEnd> ends = session.RunOnPens(pens, job);
  bool told = std::any_of(ends.begin(), ends.end(), [](const RunEnd& end) { return end.code < 0; });
  if (!told) session.console().Line(fmt::format("Log: {}", session.log().File()));
  return Combined(ends, options.failIfCurrent);
}

}  // namespace

ExitStatus InstallCommand(const Options& options) {
  return Session::Serve(options, options.plan ? "plan" : "install", [&](Session& session) {
    RequirePerson(session);
    if (!options.fresh) return Install(session, options.bundle);
    FreshCopy copy(options.bundle);
    return Install(session, copy.File());
  });
}
