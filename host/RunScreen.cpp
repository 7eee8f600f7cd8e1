#include "host/RunScreen.h"

#include <fmt/format.h>

#include "desk/PenRun.h"
#include "desk/Text.h"
#include "host/RunSummary.h"

namespace {

// What a person calls the package.
std::string Title(const PackageRow& row) {
  return Printable(row.file.empty() ? row.name : row.file);
}

std::string_view TextOf(WaitFor what) {
  if (what == WaitFor::kPerhapsLeave) return "reading the pen, or waiting for it to leave";
  return what == WaitFor::kReturn ? "waiting for the pen to return" : "waiting for the pen to leave";
}

}  // namespace

size_t RunScreen::LineOf(const PenRun& run) {
  std::lock_guard<std::mutex> guard(m_lock);
  return m_lines.try_emplace(&run, m_lines.size()).first->second;
}

bool RunScreen::AskToSkip(const PenRun& run, const PackageRow& row) {
  char answer = m_progress.Ask(fmt::format("{}: skip {} and go on? [y/N] ", run.Id(), Title(row)),
                               [&run] { return run.IsStopRequested(); });
  return answer == 'y' || answer == 'Y';
}

void RunScreen::OnStarted(const PenRun& run) {
  m_progress.Show(LineOf(run), fmt::format("{}  reading the pen", run.Id()), true);
}

void RunScreen::OnProgress(const PenRun& run, const PackageProgress& progress) {
  const PackageRow& row = progress.package;
  size_t line = LineOf(run);
  if (run.OfJob().removes) {
    std::string text =
        fmt::format("{}: removed {} ({} of {})", run.Id(), Title(row), progress.runDone, progress.runTotal);
    m_progress.Show(line, text);
    m_progress.SayIfStill(text);
    return;
  }
  if (row.finished) {
    m_progress.SayIfStill(fmt::format("{}: through with {}", run.Id(), Title(row)));
  } else if (progress.begins) {
    m_progress.SayIfStill(fmt::format("{}: sending {}, {}", run.Id(), Title(row), BytesText(row.total)));
  }
  std::string speed;
  if (progress.secondsLeft) {
    speed = fmt::format("  {}/s  {} left", BytesText(progress.rate), DurationText(*progress.secondsLeft));
  }
  m_progress.Show(line, fmt::format("{}  {}  {}  {} of {}{}", run.Id(), BarText(progress.runDone, progress.runTotal),
                                    Title(row), BytesText(row.done), BytesText(row.total), speed));
}

void RunScreen::OnFailed(const PenRun& run, const PackageRow& row) {
  m_progress.Problem(fmt::format("{}: {}: {} ({}).", run.Id(), Title(row), ::TextOf(row.error).meaning, row.error));
}

void RunScreen::OnWait(const PenRun& run, const Wait& wait, bool begins) {
  std::string_view text = TextOf(wait.what);
  m_progress.Show(LineOf(run), fmt::format("{}  {}: {} of {} s", run.Id(), text, wait.seconds, Wait::kLimit), true);
  if (begins) m_progress.SayIfStill(fmt::format("{}: {}: up to {} s", run.Id(), text, Wait::kLimit));
}

void RunScreen::OnEnded(const PenRun& run, const RunEnd& end) {
  m_progress.Show(LineOf(run), fmt::format("{}  {}", run.Id(), ::TextOf(end.code).meaning), true);
  std::string left = MayBeHalfWay(run, end) ? StateLeft(run) : "";
  m_progress.Tell([&] { ShowEnd(m_console, run, end, left, m_logFile); });
}
