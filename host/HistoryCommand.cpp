#include <fmt/format.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <sstream>

#include "desk/Failure.h"
#include "desk/History.h"
#include "desk/Text.h"
#include "host/Commands.h"
#include "host/Console.h"
#include "host/HistoryText.h"
#include "host/When.h"

namespace {

// For other programs that write the history.
constexpr std::chrono::seconds kPatience(5);
// Where no window bounds a line.
constexpr size_t kWide = 200;

HistoryFilter FilterOf(const Options& options) {
  HistoryFilter filter;
  for (uint64_t id : options.pens) filter.pens.push_back(PenIdText(id));
  filter.failed = options.failed;
  filter.readers = options.all || options.show;
  filter.limit = options.show ? 1 : options.limit;
  filter.lines = options.lines;
  if (options.show && options.run != "last") filter.number = std::stoll(options.run);
  if (options.since.empty()) return filter;
  std::optional<std::string> since = ParseSince(options.since, time(nullptr));
  if (!since) {
    throw Failure(ExitStatus::kUsage, fmt::format("--since \"{}\" is no time; give 7d, 12h, 30m, or a date as "
                                                  "2026-11-21.",
                                                  options.since));
  }
  filter.since = *since;
  return filter;
}

Json LinesOf(const RunRecord& run) {
  Json lines = Json::array();
  std::istringstream in(run.lines);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

void TellRun(const Console& console, const RunRecord& run, const Options& options) {
  if (options.json) {
    Json about = ToJson(run);
    if (options.lines) about["lines"] = LinesOf(run);
    return console.Raw(ToLine({{"schema", 1}, {"run", about}}));
  }
  ShowRun(console, run);
  if (!options.lines) return;
  console.Line(run.lines.empty() ? "No line of its log is kept." : "Its lines of the log:");
  std::istringstream in(run.lines);
  for (std::string line; std::getline(in, line);) console.Line("  " + Printable(line));
}

void TellRuns(const Console& console, const std::vector<RunRecord>& runs, const Options& options) {
  if (options.json) {
    Json list = Json::array();
    for (const RunRecord& run : runs) list.push_back(ToJson(run));
    return console.Raw(ToLine({{"schema", 1}, {"runs", list}}));
  }
  if (runs.empty()) return console.Line("The history has no such run.");
  ShowRuns(console, runs, console.IsTerminal() ? console.Columns() : kWide);
  bool cut = options.limit > 0 && runs.size() == options.limit;
  if (cut) console.Line(fmt::format("The newest {}; --limit 0 lists all.", runs.size()));
}

}  // namespace

ExitStatus HistoryCommand(const Options& options) {
  Console console(false, false);
  History history(kPatience);
  std::vector<RunRecord> runs = history.Find(FilterOf(options));
  if (std::string problem = history.TakeProblem(); !problem.empty()) Complain(fmt::format("warning: {}.", problem));
  if (!options.show) {
    TellRuns(console, runs, options);
    return ExitStatus::kDone;
  }
  if (runs.empty()) {
    throw Failure(ExitStatus::kUsage, options.run == "last" ? std::string("The history has no run yet.")
                                                            : fmt::format("The history has no run {}; `quarvel "
                                                                          "history` lists those that are kept.",
                                                                          options.run));
  }
  TellRun(console, runs.front(), options);
  return ExitStatus::kDone;
}
