#include "host/Session.h"

#include <errno.h>
#include <fmt/format.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

#include "host/Text.h"

namespace {

constexpr uint64_t kLogBytes = 8 << 20;  // a run's lines must outlive the trimming of the log
constexpr size_t kLongestLogPath = 259;  // what the library takes

constexpr std::string_view kStopping =
    "Stopping: the pens are asked to abort, which may take until they answer.\n"
    "Press Ctrl-C again to learn what a hard stop would risk.";
constexpr std::string_view kHardStop =
    "Still waiting for the pens. A third Ctrl-C ends this program at once. Then:\n"
    "  - a pen whose firmware is being replaced stays in download mode, without a firmware that works;\n"
    "  - an application that is being sent is missing or incomplete on the pen.\n"
    "To recover, disconnect and reconnect the pen, look at it with `quarvel pens`, and start the same install again;\n"
    "it goes on with what the pen still lacks.";

// The library drops what it cannot write, so it is tried first.
std::string WritableLog(const std::string& chosen, const RunFolder& folder) {
  std::string path = chosen.empty() ? folder.LogFile() : std::filesystem::absolute(chosen).string();
  if (path.size() > kLongestLogPath) {
    throw Failure(ExitStatus::kUsage,
                  fmt::format("The log's path is longer than {} bytes; choose another with --log.", kLongestLogPath));
  }
  if (!std::ofstream(path, std::ios::app)) {
    throw Failure(ExitStatus::kUsage,
                  fmt::format("The log {} cannot be written ({}); choose another with --log.", path, strerror(errno)));
  }
  return path;
}

std::string ReadTextFile(const std::string& file) {
  constexpr uint64_t longest = 1 << 20;
  std::error_code error;
  uint64_t size = std::filesystem::file_size(file, error);
  std::string text(error || size > longest ? 0 : static_cast<size_t>(size), '\0');
  std::ifstream in(file, std::ios::binary);
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (error || !in || text.empty()) {
    throw Failure(ExitStatus::kUsage,
                  fmt::format("The certificate {} cannot be read ({}); give a PEM file with --cert.", file,
                              error            ? error.message()
                              : size > longest ? "it is too long for a certificate"
                              : size == 0      ? "it is empty"
                                               : strerror(errno)));
  }
  return text;
}

void OnInterrupt(int count, const std::vector<std::unique_ptr<PenRun>>& runs, Progress& progress) {
  progress.Problem(count == 1 ? kStopping : kHardStop);
  for (const auto& run : runs) run->RequestAbort();
}

bool AllDone(const std::vector<std::unique_ptr<PenRun>>& runs) {
  return std::all_of(runs.begin(), runs.end(), [](const auto& run) { return run->IsDone(); });
}

// Tells what the library waits for.
void TellWaits(const std::vector<std::unique_ptr<PenRun>>& runs) {
  std::vector<int32_t> handles = PenHandles();
  for (const auto& run : runs) run->Poll(handles);
}

// Once a second, since the library forgets an abort that comes while a run only begins.
void RepeatAbort(const std::vector<std::unique_ptr<PenRun>>& runs, const Interrupts& interrupts) {
  if (!interrupts.Requested()) return;
  for (const auto& run : runs) run->RequestAbort();
}

}  // namespace

Session::Session(const Options& options, const std::string& command)
    : m_options(options),
      m_command(command),
      m_console(options.json, options.quiet),
      m_folder(RunFolder::Make()),
      m_logFile(WritableLog(options.log, m_folder)),
      m_logReader(m_logFile),
      m_events(options.json, m_folder.EventsFile()) {
  m_folder.WriteDescription(
      {{"command", command}, {"bundle", options.bundle}, {"log", m_logFile}, {"started", TimeText()}});
  insSetupLog(1, m_logFile.c_str(), kLogBytes);
}

ExitStatus Session::Serve(const Options& options, const std::string& command,
                          const std::function<ExitStatus(Session&)>& body) {
  Session session(options, command);
  try {
    return body(session);
  } catch (const CallFailure& failure) {
    session.Explain(failure.Code(), failure.Detail());
    session.WriteResult(nullptr, failure.Code(), failure.Status(), failure.Detail(), {});
    return failure.Status();
  } catch (const Failure& failure) {
    session.WriteFailure(failure);
    throw;
  }
}

void Session::RunOnPens(const std::vector<std::unique_ptr<PenRun>>& runs, const PenRun::Work& work,
                        Progress& progress) {
  m_interrupts.Attend([&](int count) { OnInterrupt(count, runs, progress); });
  std::vector<std::jthread> threads;
  for (const auto& run : runs) {
    WriteRun(&run->OfPen());
    threads.emplace_back([&work, &run] { run->Execute(work); });
  }
  constexpr int ticksPerSecond = 20;
  for (int tick = 1; !AllDone(runs); ++tick) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1000 / ticksPerSecond));
    if (tick % (ticksPerSecond / 4) == 0) TellWaits(runs);
    if (tick % ticksPerSecond == 0) RepeatAbort(runs, m_interrupts);
  }
  threads.clear();
  m_interrupts.Attend([](int) {});
  progress.Finish();
}

void Session::Require(InsResCode code, std::string_view function, const std::string& logLine) const {
  if (code == insSuccess) return;
  throw CallFailure(code, DetailOf(m_logReader.LinesOfCall(LogThreadName(), function, logLine)));
}

void Session::Explain(InsResCode code, const std::string& detail) const {
  ResultText text = TextOf(code);
  std::string meaning(text.meaning);
  meaning[0] = static_cast<char>(toupper(meaning[0]));
  m_console.Problem(fmt::format("{} ({}).", m_console.Painted(Paint::kBad, meaning), code));
  if (!detail.empty()) m_console.Problem(fmt::format("  The log says: {}", Printable(detail)));
  if (!text.remedy.empty()) m_console.Problem(fmt::format("  What to do: {}", text.remedy));
  m_console.Problem(fmt::format("  Log: {}", m_logFile));
}

void Session::WriteRun(const Pen* pen) {
  m_events.Write("run", {{"pen", pen ? Json(IdText(*pen)) : Json(nullptr)},
                         {"state", "started"},
                         {"command", m_command},
                         {"handle", pen ? Json(pen->handle) : Json(nullptr)},
                         {"bundle", m_options.bundle},
                         {"group", m_options.group},
                         {"time", TimeText()},
                         {"log", m_logFile}});
}

void Session::WriteResult(const Json& pen, InsResCode code, ExitStatus status, const std::string& detail,
                          const std::vector<PackageRow>& packages) {
  ResultText text = TextOf(code);
  Json rows = Json::array();
  for (const PackageRow& row : packages) rows.push_back(ToJson(row));
  m_events.Write("result", {{"pen", pen},
                            {"code", code},
                            {"class", NameOf(status)},
                            {"exit", static_cast<int>(status)},
                            {"meaning", text.meaning},
                            {"remedy", text.remedy},
                            {"detail", detail},
                            {"packages", rows},
                            {"time", TimeText()}});
}

void Session::WriteFailure(const Failure& failure) {
  m_events.Write("result", {{"pen", nullptr},
                            {"code", nullptr},
                            {"class", NameOf(failure.Status())},
                            {"exit", static_cast<int>(failure.Status())},
                            {"meaning", failure.what()},
                            {"time", TimeText()}});
}

std::vector<std::string> ReadCertificates(const std::vector<std::string>& files) {
  std::vector<std::string> texts;
  for (const std::string& file : files) texts.push_back(ReadTextFile(file));
  return texts;
}
