#include "host/RunSummary.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/Text.h"
#include "platform/Tessvik.h"

namespace {

Paint PaintOf(std::string_view outcome) {
  if (outcome == "installed" || outcome == "removed") return Paint::kGood;
  return outcome == "skipped" ? Paint::kNone : Paint::kWarning;
}

size_t WidthOf(const std::vector<PackageRow>& rows, std::string PackageRow::*field) {
  size_t width = 0;
  for (const PackageRow& row : rows) width = std::max(width, Printable(row.*field).size());
  return std::min<size_t>(width, 40);
}

// The pen as it is now: under its id or, in download mode, under the handle that it had last.
std::optional<Pen> FindAgain(const PenRun& run) {
  std::vector<Pen> pens = ConnectedPens();
  auto same = [&](const Pen& pen) { return pen.id == run.OfPen().id || (!pen.id && pen.handle == run.Handle()); };
  auto pen = std::find_if(pens.begin(), pens.end(), same);
  if (pen == pens.end()) return std::nullopt;
  ReadContents(*pen);
  return *pen;
}

std::string StateLeft(const std::optional<Pen>& pen) {
  if (!pen) return "not connected; reconnect it and look at it with `quarvel pens`";
  if (pen->state == pcPenStateFirmwareDownload && !pen->id) {
    return "in download mode, without a firmware that works, and tells no id; switch it off and on, and start the "
           "install again once `quarvel pens` shows its id";
  }
  if (pen->state == pcPenStateFirmwareDownload) {
    return "in download mode, without a firmware that works; leave it connected and start the install again";
  }
  if (!pen->contents) return "connected, but it cannot be read; reconnect it";
  return fmt::format("in normal operation, with firmware {} and {} applications; start again to go on",
                     Printable(pen->contents->firmware), pen->contents->penlets.size());
}

}  // namespace

std::vector<LogLine> LinesOf(const Session& session, PenRun& run, std::string_view function) {
  if (!run.Began() || (run.Result() == insSuccess && !run.Packages().NeedLog())) return {};
  return session.log().LinesOfCall(run.LogThread(), function, fmt::format("-Ret={}, ", run.Result()));
}

RunEnd EndOf(PenRun& run, const std::string& detail) {
  InsResCode code = run.Result();
  InsResCode passedOver = run.Packages().FirstError();
  bool clean = code != insSuccess || passedOver == insSuccess;
  return {code, StatusOf(clean ? code : passedOver), code < 0 ? detail : ""};
}

void ShowPackages(const Console& console, const PenRun& run, const std::vector<PackageRow>& rows) {
  console.Line(fmt::format("Pen {}{}", run.Id(), run.OfPen().name.empty() ? "" : ", " + Printable(run.OfPen().name)));
  auto title = [](const PackageRow& row) { return Printable(row.file.empty() ? row.name : row.file); };
  size_t names = 0;
  for (const PackageRow& row : rows) names = std::max(names, title(row).size());
  size_t versions = WidthOf(rows, &PackageRow::version);
  for (const PackageRow& row : rows) {
    std::string outcome = console.Painted(PaintOf(row.outcome), fmt::format("{:<12}", row.outcome));
    std::string line = fmt::format("  {:<{}}  {:<{}}  {}  {}", title(row), std::min<size_t>(names, 40),
                                   Printable(row.version), versions, outcome, Printable(row.reason));
    console.Line(line.substr(0, line.find_last_not_of(' ') + 1));
  }
}

void ShowStateLeft(const Console& console, const PenRun& run) {
  console.Problem(fmt::format("Pen {} was left {}.", run.Id(), StateLeft(FindAgain(run))));
}

ExitStatus Combined(const std::vector<RunEnd>& ends, bool failIfCurrent) {
  auto bad = std::find_if(ends.begin(), ends.end(), [](const RunEnd& end) { return end.status != ExitStatus::kDone; });
  if (bad != ends.end()) return bad->status;
  bool current = std::all_of(ends.begin(), ends.end(), [](const RunEnd& end) { return end.code == insNothingToDo; });
  return failIfCurrent && current ? ExitStatus::kCurrent : ExitStatus::kDone;
}
