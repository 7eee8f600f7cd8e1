#include "desk/LogReader.h"

#include <errno.h>
#include <fmt/format.h>
#include <pthread.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "desk/Failure.h"
#include "installer/QuarvelPublic.h"

namespace {

constexpr size_t kThreadAt = 21;
constexpr size_t kTagAt = 32;
constexpr size_t kTagWidth = 20;
constexpr size_t kMessageAt = 54;

bool IsExported(const LogLine& line) {
  return line.tag.starts_with("ins");
}

uint64_t SizeOf(const std::string& file) {
  std::error_code error;
  uint64_t size = std::filesystem::file_size(file, error);
  return error ? 0 : size;
}

bool IsReadable(const std::string& file) {
  std::error_code error;
  return std::filesystem::is_regular_file(file, error);
}

// The first line of a call, or the last one of the call before it.
bool BoundsCall(const LogLine& line) {
  return IsExported(line) &&
         (line.message.starts_with("+") || line.message.starts_with("-Ret=") || line.message.starts_with("Ret="));
}

// Lines that tell what followed from an earlier line, where there is one.
bool IsConsequence(const LogLine& line) {
  return line.message.starts_with("Unable cache pen and penlet information") ||
         line.message.starts_with("Extracting ") || line.message.starts_with("Verify UpdateXML failed");
}

// An exported function tells of a failing pen library in its own lines alone.
bool TellsFailure(const LogLine& line) {
  if (IsExported(line)) return line.message.find("Unable ") != std::string::npos;
  return line.tag != "CheckToInstall" && !line.message.starts_with("Abort.");
}

}  // namespace

std::string LogThreadName() {
  return fmt::format("{:08x}", static_cast<uint32_t>(pthread_self()));
}

std::optional<LogLine> ParseLogLine(std::string_view line) {
  if (line.size() < kMessageAt || line.substr(kThreadAt - 3, 3) != "] [" || line.substr(kTagAt - 3, 3) != "] [" ||
      line.substr(kMessageAt - 2, 2) != "] ") {
    return std::nullopt;
  }
  std::string_view tag = line.substr(kTagAt, kTagWidth);
  tag = tag.substr(0, tag.find_last_not_of(' ') + 1);
  return LogLine{std::string(line.substr(kThreadAt, 8)), std::string(tag), std::string(line.substr(kMessageAt))};
}

std::string DetailOf(const std::vector<LogLine>& lines) {
  auto last = std::find_if(lines.rbegin(), lines.rend(), TellsFailure);
  if (last == lines.rend()) return "";
  if (!IsConsequence(*last)) return last->message;
  auto cause = std::find_if(last + 1, lines.rend(), TellsFailure);
  return cause == lines.rend() ? last->message : cause->message;
}

std::string_view CauseOf(std::string_view detail) {
  struct Cause {
    std::string_view part;  // of the log's message
    std::string_view words;
  };
  constexpr std::array causes{
      Cause{"Unable register install_penId", "Another program or run is using the pen."},
      Cause{"Unable get penId", "The pen is gone, or is in download mode and cannot tell its id."},
      Cause{"Cannot open file zip", "The file is no zip archive, or not a whole one, or may not be read."},
      Cause{"Go to first file failed", "The archive's directory is damaged, or there is nothing in it."},
      Cause{"Get file info failed", "The archive's directory is damaged."},
      Cause{"Open current file failed", "The archive is damaged, encrypted, or packed in an unknown way."},
      Cause{"Not found \"GroupList\"", "The file is an archive, but no bundle: it has no usable update.xml."},
      Cause{"Not found UPDATE root element", "The file is an archive, but no bundle: it has no usable update.xml."},
      Cause{"Not found BOM root element", "The bundle is not signed: it has no usable bom.xml."}};
  const auto* cause = std::find_if(causes.begin(), causes.end(),
                                   [&](const Cause& each) { return detail.find(each.part) != std::string_view::npos; });
  return cause == causes.end() ? std::string_view() : cause->words;
}

// The library drops what it cannot write, so it is tried first.
LogReader OpenLog(const std::string& file) {
  constexpr uint64_t logBytes = 8 << 20;  // a run's lines must outlive the trimming of the log
  constexpr size_t longestPath = 259;     // what the library takes
  std::string path = std::filesystem::absolute(file);
  if (path.size() > longestPath) {
    throw Failure(ExitStatus::kUsage,
                  fmt::format("The log's path is longer than {} bytes; choose another with --log.", longestPath));
  }
  std::error_code unknown;
  if (std::filesystem::is_fifo(path, unknown) || std::filesystem::is_socket(path, unknown)) {
    throw Failure(ExitStatus::kUsage, fmt::format("The log {} is a pipe or socket, at which the library might wait for "
                                                  "ever; name a file with --log.",
                                                  path));
  }
  if (!std::ofstream(path, std::ios::app)) {
    throw Failure(ExitStatus::kUsage,
                  fmt::format("The log {} cannot be written ({}); choose another with --log.", path, strerror(errno)));
  }
  LogReader reader(path);
  insSetupLog(1, path.c_str(), logBytes);
  return reader;
}

LogReader::LogReader(std::string file) : m_file(std::move(file)), m_begin(SizeOf(m_file)) {}

// A file that is smaller than it was has been trimmed, and all of it is looked at.
std::vector<LogLine> LogReader::LinesOf(const std::string& thread, uint64_t since) const {
  constexpr uint64_t most = 32 << 20;
  std::vector<LogLine> lines;
  if (!IsReadable(m_file)) return lines;
  std::ifstream in(m_file, std::ios::binary);
  uint64_t size = SizeOf(m_file);
  uint64_t begin = size >= since ? since : 0;
  if (size - begin > most) begin = size - most;
  in.seekg(static_cast<std::streamoff>(begin));
  uint64_t read = 0;
  for (std::string text; read < most && std::getline(in, text); read += text.size() + 1) {
    std::optional<LogLine> line = ParseLogLine(text);
    if (line && line->thread == thread) lines.push_back(std::move(*line));
  }
  return lines;
}

uint64_t LogReader::Mark() const {
  return IsReadable(m_file) ? SizeOf(m_file) : 0;
}

CallLines LogReader::LinesOfCall(const std::string& thread, std::string_view function, std::string_view lastLine,
                                 uint64_t since) const {
  constexpr std::chrono::milliseconds step(50);
  constexpr int steps = 50;
  uint64_t from = std::max(since, m_begin);
  for (int i = 0; i < steps && IsReadable(m_file); ++i) {
    std::vector<LogLine> lines = LinesOf(thread, from);
    auto last = std::find_if(lines.rbegin(), lines.rend(), [&](const LogLine& each) {
      return each.tag == function && each.message.starts_with(lastLine);
    });
    if (last != lines.rend()) {
      auto before = std::find_if(last + 1, lines.rend(), BoundsCall);
      bool whole = before != lines.rend();
      return {{before.base(), last.base()}, whole};
    }
    std::this_thread::sleep_for(step);
  }
  return {LinesOf(thread, from), false};
}
