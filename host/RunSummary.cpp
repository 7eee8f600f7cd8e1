#include "host/RunSummary.h"

#include <fmt/format.h>

#include <algorithm>

#include "desk/PenRun.h"
#include "desk/Text.h"
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

std::string StateText(const std::optional<Pen>& pen) {
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

std::string NothingDone(const Job& job) {
  if (!job.removes) return "  nothing to do: the pen already holds everything";
  return fmt::format("  nothing to do: the pen holds no application of the group \"{}\"", Printable(job.group));
}

}  // namespace

void Explain(const Console& console, InsResCode code, const std::string& detail, const std::string& logFile) {
  ResultText text = TextOf(code);
  std::string meaning(text.meaning);
  meaning[0] = static_cast<char>(toupper(meaning[0]));
  console.Problem(fmt::format("{} ({}).", console.Painted(Paint::kBad, meaning), code));
  if (!detail.empty()) console.Problem(fmt::format("  The log says: {}", Printable(detail)));
  if (!text.remedy.empty()) console.Problem(fmt::format("  What to do: {}", text.remedy));
  console.Problem(fmt::format("  Log: {}", logFile));
}

bool MayBeHalfWay(const PenRun& run, const RunEnd& end) {
  bool firmware = end.code == insFirmwareFailed || end.code == insTimeout;
  return end.code == insAborted || (firmware && !run.OfJob().removes);
}

std::string StateLeft(const PenRun& run) {
  return StateText(FindAgain(run));
}

void ShowEnd(const Console& console, const PenRun& run, const RunEnd& end, const std::string& left,
             const std::string& logFile) {
  ShowPackages(console, run, end.packages);
  bool nothing = end.code == insNothingToDo || (run.OfJob().removes && end.packages.empty());
  if (end.code < 0) {
    Explain(console, end.code, end.detail, logFile);
  } else if (nothing) {
    console.Line(NothingDone(run.OfJob()));
  } else if (!run.OfJob().removes) {
    console.Line("  done");
  }
  if (!left.empty()) console.Problem(fmt::format("Pen {} was left {}.", run.Id(), left));
}

ExitStatus Combined(const std::vector<RunEnd>& ends, bool failIfCurrent) {
  auto bad = std::find_if(ends.begin(), ends.end(), [](const RunEnd& end) { return end.status != ExitStatus::kDone; });
  if (bad != ends.end()) return bad->status;
  bool current = std::all_of(ends.begin(), ends.end(), [](const RunEnd& end) { return end.code == insNothingToDo; });
  return failIfCurrent && current ? ExitStatus::kCurrent : ExitStatus::kDone;
}
