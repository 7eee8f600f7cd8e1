#include "host/RunSummary.h"

#include <fmt/format.h>

#include <algorithm>

#include "desk/LogReader.h"
#include "desk/PenRun.h"
#include "desk/Text.h"

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

std::string NothingDone(const Job& job) {
  if (!job.removes) return "  nothing to do: the pen already holds everything";
  return fmt::format("  nothing to do: the pen holds no application of the group \"{}\"", Printable(job.group));
}

}  // namespace

void ShowPackages(const Console& console, const std::vector<PackageRow>& rows) {
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

void Explain(const Console& console, InsResCode code, const std::string& detail, std::string_view remedy,
             const std::string& logFile) {
  std::string meaning(TextOf(code).meaning);
  meaning[0] = static_cast<char>(toupper(meaning[0]));
  console.Problem(fmt::format("{} ({}).", console.Painted(Paint::kBad, meaning), code));
  if (std::string_view cause = CauseOf(detail); !cause.empty()) console.Problem(fmt::format("  Cause: {}", cause));
  if (!detail.empty()) console.Problem(fmt::format("  The log says: {}", Printable(detail)));
  if (!remedy.empty()) console.Problem(fmt::format("  What to do: {}", remedy));
  console.Problem(fmt::format("  Log: {}", logFile));
}

void ShowEnd(const Console& console, const PenRun& run, const RunEnd& end, const std::string& logFile) {
  console.Line(fmt::format("Pen {}{}", run.Id(), run.OfPen().name.empty() ? "" : ", " + Printable(run.OfPen().name)));
  ShowPackages(console, end.packages);
  bool nothing = end.code == insNothingToDo || (run.OfJob().removes && end.packages.empty());
  if (end.left) console.Problem(fmt::format("Pen {} was left {}.", run.Id(), WordsOf(*end.left)));
  if (end.code < 0) {
    Explain(console, end.code, end.detail, end.Remedy(), logFile);
  } else if (nothing) {
    console.Line(NothingDone(run.OfJob()));
  } else if (!run.OfJob().removes) {
    console.Line(fmt::format("  done, in {}", DurationText(static_cast<uint64_t>(end.seconds + 0.5))));
  }
}

ExitStatus Combined(const std::vector<RunEnd>& ends, bool failIfCurrent) {
  auto bad = std::find_if(ends.begin(), ends.end(), [](const RunEnd& end) { return end.status != ExitStatus::kDone; });
  if (bad != ends.end()) return bad->status;
  bool current = std::all_of(ends.begin(), ends.end(), [](const RunEnd& end) { return end.code == insNothingToDo; });
  return failIfCurrent && current ? ExitStatus::kCurrent : ExitStatus::kDone;
}
