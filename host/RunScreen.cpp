#include "host/RunScreen.h"

#include <fmt/format.h>

#include <vector>

#include "desk/PenRun.h"
#include "desk/Text.h"
#include "host/RunSummary.h"

namespace {

// What a person calls the package.
std::string Title(const PackageRow& row) {
  return Printable(row.file.empty() ? row.name : row.file);
}

// From the longest to the shortest: the bar and the bytes are those of the whole run.
std::vector<std::string> ProgressForms(const std::string& id, const PackageProgress& progress,
                                       const std::string& title) {
  std::string percent = PercentText(progress.runDone, progress.runTotal);
  std::string bytes = fmt::format("{} of {}", BytesText(progress.runDone), BytesText(progress.runTotal));
  std::string speed;
  std::string left;
  if (progress.secondsLeft) {
    speed = fmt::format("  {}/s", BytesText(progress.rate));
    left = fmt::format("  {} left", DurationText(*progress.secondsLeft));
  }
  std::string bar = BarText(progress.runDone, progress.runTotal, 10);
  return {fmt::format("{}  {} {}  {}{}{}  {}", id, BarText(progress.runDone, progress.runTotal, 20), percent, bytes,
                      speed, left, title),
          fmt::format("{}  {} {}  {}{}{}  {}", id, bar, percent, bytes, speed, left, title),
          fmt::format("{}  {} {}  {}{}{}", id, bar, percent, bytes, speed, left),
          fmt::format("{} {}{}{}  {}", id, percent, speed, left, title),
          fmt::format("{} {}{}{}", id, percent, speed, left),
          fmt::format("{} {}{}", id, percent, left)};
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
  m_progress.Show(LineOf(run), {fmt::format("{}  reading the pen", run.Id())}, true);
}

void RunScreen::OnProgress(const PenRun& run, const PackageProgress& progress) {
  const PackageRow& row = progress.package;
  if (run.OfJob().removes) {
    if (row.error != insSuccess) return;
    std::string text =
        fmt::format("{}: removed {} ({} of {})", run.Id(), Title(row), progress.runDone, progress.runTotal);
    m_progress.Show(LineOf(run), {text});
    m_progress.SayIfStill(text);
    return;
  }
  if (row.finished && row.error == insSuccess) {
    m_progress.SayIfStill(fmt::format("{}: through with {}", run.Id(), Title(row)));
  } else if (progress.begins && row.error == insSuccess) {
    m_progress.SayIfStill(fmt::format("{}: sending {}, {}", run.Id(), Title(row), BytesText(row.total)));
  }
  m_progress.Show(LineOf(run), ProgressForms(run.Id(), progress, Title(row)));
}

void RunScreen::OnFailed(const PenRun& run, const PackageRow& row) {
  m_progress.Problem(fmt::format("{}: {}: {} ({}).", run.Id(), Title(row), ::TextOf(row.error).meaning, row.error));
}

void RunScreen::OnWait(const PenRun& run, const Wait& wait, bool begins) {
  std::string_view text = TextOf(wait.what);
  m_progress.Show(LineOf(run), {fmt::format("{}  {}: {} of {} s", run.Id(), text, wait.seconds, Wait::kLimit)}, true);
  if (begins) m_progress.SayIfStill(fmt::format("{}: {}: up to {} s", run.Id(), text, Wait::kLimit));
}

void RunScreen::OnEnded(const PenRun& run, const RunEnd& end) {
  m_progress.Remove(LineOf(run));
  m_progress.Tell([&] { ShowEnd(m_console, run, end, m_logFile); });
}
