#include "host/HistoryText.h"

#include <fmt/format.h>

#include <algorithm>

#include "desk/Text.h"
#include "host/Progress.h"
#include "host/RunSummary.h"
#include "host/When.h"

namespace {

bool HasNothingDone(const RunRecord& run) {
  return !run.pens.empty() && std::all_of(run.pens.begin(), run.pens.end(), [](const PenRecord& pen) {
    return pen.HasEnded() && pen.code == insNothingToDo;
  });
}

bool IsFailure(const PenRecord& pen) {
  return !pen.HasEnded() || pen.status != ExitStatus::kDone;
}

std::string FailureOf(const RunRecord& run) {
  auto failing = std::find_if(run.pens.begin(), run.pens.end(), IsFailure);
  if (failing == run.pens.end()) return run.sentence.empty() ? "failed" : "failed: " + Printable(run.sentence);
  auto count = std::count_if(run.pens.begin(), run.pens.end(), IsFailure);
  std::string head = run.pens.size() > 1 ? fmt::format("{} of {} failed", count, run.pens.size()) : "failed";
  if (failing->code == insSuccess) return head + ": a package was passed over";
  return fmt::format("{}: {} ({})", head, TextOf(failing->code).meaning, failing->code);
}

std::string PensOf(const RunRecord& run) {
  if (run.pens.empty()) return "-";
  auto other = [&run](const PenRecord& pen) { return pen.id != run.pens.front().id; };
  if (std::none_of(run.pens.begin(), run.pens.end(), other)) return run.pens.front().id;
  return fmt::format("{} pens", run.pens.size());
}

std::string Filled(const std::string& text, size_t columns) {
  std::string cut = ColumnsOf(text) > columns ? std::string(CutToColumns(text, columns - 1)) + "~" : text;
  return cut + std::string(columns - ColumnsOf(cut), ' ');
}

Paint PaintOf(const RunRecord& run) {
  if (run.running) return Paint::kNone;
  return run.HasFailed() ? Paint::kBad : Paint::kGood;
}

// What of a run is shown in which width; the outcome takes what is left.
struct Layout {
  size_t number = 3;
  bool year = true;
  size_t bundle = 0;
  size_t outcome = 0;

  Layout(const std::vector<RunRecord>& runs, size_t columns) {
    constexpr size_t fixed = 9 + 20 + 13;  // command, pen and the shortest outcome, with what parts them
    constexpr size_t longestBundle = 30;
    size_t longest = 6;
    for (const RunRecord& run : runs) {
      number = std::max(number, std::to_string(run.number).size());
      longest = std::max(longest, ColumnsOf(FileNameOf(run.bundle)));
    }
    size_t room = columns > fixed + number + 2 ? columns - fixed - number - 2 : 0;
    year = room >= 18;
    room -= std::min<size_t>(room, year ? 18 : 13);
    if (room >= 10) bundle = std::min({longest, longestBundle, room - 2});
    outcome = 13 + room - (bundle > 0 ? bundle + 2 : 0);
  }

  std::string Row(const std::string& run, const std::string& time, const std::string& command, const std::string& pen,
                  const std::string& file) const {
    std::string text = fmt::format("{:>{}}  {:<{}}  {:<7}  {:<18}  ", run, number, time, year ? 16 : 11, command, pen);
    return bundle > 0 ? text + Filled(file, bundle) + "  " : text;
  }
};

void ShowPen(const Console& console, const PenRecord& pen) {
  std::string firmware = pen.firmwareBefore;
  if (!pen.firmwareAfter.empty() && pen.firmwareAfter != firmware) {
    firmware = firmware.empty() ? pen.firmwareAfter + " afterwards" : firmware + " -> " + pen.firmwareAfter;
  }
  console.Line(fmt::format("Pen {}{}{}{}", pen.id, pen.name.empty() ? "" : ", " + Printable(pen.name),
                           pen.type ? fmt::format(", type {}", *pen.type) : "",
                           firmware.empty() ? "" : ", firmware " + Printable(firmware)));
  ShowPackages(console, pen.packages);
  if (!pen.HasEnded()) return console.Line("  no result is known");
  if (!pen.left.empty()) console.Line("  it was left " + Printable(pen.left));
  std::string meaning(TextOf(pen.code).meaning);
  std::string code = pen.code == insSuccess ? "" : fmt::format(" ({})", pen.code);
  console.Line(fmt::format("  {}{}, in {}", console.Painted(pen.code < 0 ? Paint::kBad : Paint::kGood, meaning), code,
                           DurationText(static_cast<uint64_t>(pen.seconds + 0.5))));
  if (!pen.detail.empty()) console.Line("  The log says: " + Printable(pen.detail));
  if (!pen.remedy.empty() && pen.code < 0) console.Line("  What to do: " + Printable(pen.remedy));
}

void ShowBundle(const Console& console, const RunRecord& run) {
  if (run.bundle.empty()) return;
  std::string size = run.bundleBytes ? ", " + BytesText(static_cast<uint64_t>(*run.bundleBytes)) : "";
  console.Line(fmt::format("  bundle   {}{}", Printable(run.bundle), size));
  if (!run.bundleDigest.empty()) console.Line("  sha-256  " + run.bundleDigest);
}

}  // namespace

std::string OutcomeOf(const RunRecord& run) {
  if (run.running) return "running";
  if (!run.status) return "ended without a result";
  if (!run.HasFailed()) return HasNothingDone(run) ? "nothing to do" : "done";
  if (*run.status == static_cast<int64_t>(ExitStatus::kKilled)) return "stopped at once, without a result";
  if (*run.status == static_cast<int64_t>(ExitStatus::kAborted)) return "aborted";
  return FailureOf(run);
}

std::string ShortOutcomeOf(const RunRecord& run) {
  if (!run.running && !run.status) return "no result";
  std::string whole = OutcomeOf(run);
  if (whole.size() <= 13) return whole;
  if (whole.starts_with("stopped")) return "stopped";
  auto failing = std::find_if(run.pens.begin(), run.pens.end(), IsFailure);
  bool coded = failing != run.pens.end() && failing->code < 0 && run.pens.size() == 1;
  if (coded) return fmt::format("failed ({})", failing->code);
  std::string head = whole.substr(0, whole.find(':'));
  return head.size() <= 13 ? head : "failed";
}

std::string NameOfRun(const RunRecord& run) {
  return run.number > 0 ? fmt::format("run {}", run.number) : fmt::format("the run of {}", WhenText(run.started, true));
}

void ShowRuns(const Console& console, const std::vector<RunRecord>& runs, size_t columns) {
  Layout layout(runs, columns);
  console.Line(layout.Row("RUN", "TIME", "COMMAND", "PEN", "BUNDLE") + "RESULT");
  for (const RunRecord& run : runs) {
    std::string outcome = OutcomeOf(run);
    if (ColumnsOf(outcome) > layout.outcome) outcome = ShortOutcomeOf(run);
    console.Line(layout.Row(run.number > 0 ? std::to_string(run.number) : "-", WhenText(run.started, layout.year),
                            run.command, PensOf(run), Printable(FileNameOf(run.bundle))) +
                 console.Painted(PaintOf(run), outcome));
  }
}

void ShowRun(const Console& console, const RunRecord& run) {
  std::string name = NameOfRun(run);
  name[0] = static_cast<char>(toupper(name[0]));
  std::string duration =
      run.ended.empty() ? "" : ", " + DurationText(SecondsBetween(run.started, run.ended)) + " in all";
  console.Line(fmt::format("{}: {}, {}{}", name, run.command, WhenText(run.started, true), duration));
  console.Line(fmt::format("  result   {}", console.Painted(PaintOf(run), OutcomeOf(run))));
  ShowBundle(console, run);
  if (!run.group.empty()) console.Line("  group    " + Printable(run.group));
  console.Line("  log      " + Printable(run.log));
  for (const PenRecord& pen : run.pens) ShowPen(console, pen);
}
