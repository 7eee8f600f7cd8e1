#include "host/PenRun.h"

#include <fmt/format.h>

#include "host/ResultTexts.h"
#include "host/Text.h"

namespace {

bool IsRemoval(const PenUpdateProgressCallbackInfo& info) {
  return TextOrEmpty(info.action) == "Removing";
}

uint64_t RunDone(const PenUpdateProgressCallbackInfo& info) {
  return info.doneCount + info.itemDone;
}

// What a person calls the package.
std::string Title(const PackageRow& row) {
  return Printable(row.file.empty() ? row.name : row.file);
}

}  // namespace

PenRun::PenRun(RunContext& context, size_t line, Pen pen, bool firmware)
    : m_context(context), m_line(line), m_pen(std::move(pen)), m_handle(m_pen.handle), m_watch(m_handle, firmware) {}

void PenRun::Execute(const Work& work) {
  m_logThread = LogThreadName();
  m_context.progress.Show(m_line, fmt::format("{}  reading the pen", Id()), true);
  // An interrupt that came before the library knows of the run would be lost on it.
  m_began = !m_context.interrupts.Requested();
  if (m_began) m_result = work(&m_handle, this);
  m_context.progress.Show(m_line, fmt::format("{}  {}", Id(), TextOf(m_result).meaning), true);
  m_done = true;
}

// Nothing may be thrown through the library.
int32_t PenRun::Callback(int32_t penHandle, const PenUpdateProgressCallbackInfo* info, void* userData) {
  try {
    return static_cast<PenRun*>(userData)->OnReport(penHandle, *info);
  } catch (...) {
    return 1;
  }
}

int32_t PenRun::OnReport(int32_t penHandle, const Info& info) {
  bool known = m_packages.IsFinished(TextOrEmpty(info.packageFile));
  const PackageRow& row = m_packages.Take(info);
  if (info.result != insSuccess) return OnError(row);
  {
    std::lock_guard<std::mutex> guard(m_waitLock);
    m_watch.OnReport(penHandle, row.fileType, info.itemDone >= info.itemTotal);
    m_toldWait = {};
  }
  if (!known) OnProgress(info, row);
  return m_context.interrupts.Requested() ? 1 : 0;
}

void PenRun::OnProgress(const Info& info, const PackageRow& row) {
  if (IsRemoval(info)) {
    std::string text = fmt::format("{}: removed {} ({} of {})", Id(), Title(row), info.doneCount, info.totalCount);
    m_context.progress.Show(m_line, text);
    m_context.progress.SayIfStill(text);
  } else if (row.finished) {
    m_context.progress.SayIfStill(fmt::format("{}: through with {}", Id(), Title(row)));
  } else if (m_measured != row.path) {
    m_context.progress.SayIfStill(fmt::format("{}: sending {}, {}", Id(), Title(row), BytesText(info.itemTotal)));
  }
  TellPackage(info, row);
}

// Bytes a second of the transfer that runs; 0 until a second report gives a measure.
double PenRun::Rate(const Info& info, Time now) {
  if (m_measured != TextOrEmpty(info.packageFile)) {
    m_measured = TextOrEmpty(info.packageFile);
    m_measuredFrom = now;
    m_measuredBytes = info.itemDone;
  }
  double seconds = std::chrono::duration<double>(now - m_measuredFrom).count();
  bool measurable = seconds > 0.05 && info.itemDone > m_measuredBytes;
  return measurable ? static_cast<double>(info.itemDone - m_measuredBytes) / seconds : 0;
}

void PenRun::TellPackage(const Info& info, const PackageRow& row) {
  Time now = std::chrono::steady_clock::now();
  bool begins = m_measured != row.path;
  double rate = Rate(info, now);
  uint64_t remaining = info.totalCount > RunDone(info) ? info.totalCount - RunDone(info) : 0;
  Json left = nullptr;
  std::string speed;
  if (rate >= 1) {
    auto seconds = static_cast<uint64_t>(static_cast<double>(remaining) / rate);
    left = seconds;
    speed = fmt::format("  {}/s  {} left", BytesText(static_cast<uint64_t>(rate)), DurationText(seconds));
  }
  if (!IsRemoval(info)) {
    m_context.progress.Show(
        m_line, fmt::format("{}  {}  {}  {} of {}{}", Id(), BarText(RunDone(info), info.totalCount), Title(row),
                            BytesText(info.itemDone), BytesText(info.itemTotal), speed));
  }
  if (!row.finished && !begins && now - m_lastEvent < std::chrono::milliseconds(200)) return;
  m_lastEvent = now;
  m_context.events.Write("package", {{"pen", Id()},
                                     {"state", row.finished ? "finished" : "transferring"},
                                     {"file", row.file},
                                     {"name", row.name},
                                     {"guid", row.guid},
                                     {"version", row.version},
                                     {"group", row.group},
                                     {"fileType", row.fileType},
                                     {"done", row.done},
                                     {"total", row.total},
                                     {"runDone", RunDone(info)},
                                     {"runTotal", info.totalCount},
                                     {"rate", static_cast<uint64_t>(rate)},
                                     {"secondsLeft", left}});
}

int32_t PenRun::OnError(const PackageRow& row) {
  ResultText text = TextOf(row.error);
  m_context.progress.Problem(fmt::format("{}: {}: {} ({}).", Id(), Title(row), text.meaning, row.error));
  bool skip = !m_context.interrupts.Requested() && DecideToSkip(row);
  m_context.events.Write("error", {{"pen", Id()},
                                   {"code", row.error},
                                   {"meaning", text.meaning},
                                   {"remedy", text.remedy},
                                   {"file", row.file},
                                   {"version", row.version},
                                   {"decision", skip ? "skip" : "stop"}});
  return skip ? 0 : 1;
}

// To go on after a failed signature check would install the package unverified: that is never done. Only a
// removal reports insPenFailure; the library goes on with the next application by itself then, and so does the run.
bool PenRun::DecideToSkip(const PackageRow& row) {
  if (row.error == insPenFailure) return true;
  if (row.error == insPackageUnsigned || m_context.options.onError == OnError::kStop) return false;
  if (m_context.options.onError == OnError::kSkip) return true;
  char answer = m_context.progress.Ask(fmt::format("{}: skip {} and go on? [y/N] ", Id(), Title(row)),
                                       [this] { return m_context.interrupts.Requested(); });
  return answer == 'y' || answer == 'Y';
}

void PenRun::Poll(std::span<const int32_t> handles) {
  std::lock_guard<std::mutex> guard(m_waitLock);
  if (m_done) return;
  Wait wait = m_watch.Poll(handles, std::chrono::steady_clock::now());
  if (wait.what != WaitFor::kNothing && wait != m_toldWait) TellWait(wait);
  m_toldWait = wait;
}

void PenRun::TellWait(const Wait& wait) {
  bool sure = wait.what != WaitFor::kPerhapsLeave;
  std::string_view what = wait.what == WaitFor::kReturn ? "return" : "leave";
  std::string text =
      sure ? fmt::format("waiting for the pen to {}", what) : "reading the pen, or waiting for it to leave";
  m_context.progress.Show(m_line, fmt::format("{}  {}: {} of {} s", Id(), text, wait.seconds, Wait::kLimit), true);
  if (wait.what != m_toldWait.what) {
    m_context.progress.SayIfStill(fmt::format("{}: {}: up to {} s", Id(), text, Wait::kLimit));
  }
  if (!sure) return;
  m_context.events.Write("wait", {{"pen", Id()}, {"for", what}, {"seconds", wait.seconds}, {"limit", Wait::kLimit}});
}

void PenRun::RequestAbort() const {
  if (!m_done) insAbort(*m_pen.id);
}
