#include "desk/LogReader.h"

#include <errno.h>
#include <fmt/format.h>
#include <pthread.h>
#include <string.h>

#include <algorithm>
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
  auto line = std::find_if(lines.rbegin(), lines.rend(), [](const LogLine& each) {
    return !IsExported(each) && each.tag != "CheckToInstall" && !each.message.starts_with("Abort.");
  });
  return line == lines.rend() ? "" : line->message;
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
std::vector<LogLine> LogReader::LinesOf(const std::string& thread) const {
  std::vector<LogLine> lines;
  std::ifstream in(m_file, std::ios::binary);
  if (SizeOf(m_file) >= m_begin) in.seekg(static_cast<std::streamoff>(m_begin));
  for (std::string text; std::getline(in, text);) {
    std::optional<LogLine> line = ParseLogLine(text);
    if (line && line->thread == thread) lines.push_back(std::move(*line));
  }
  return lines;
}

std::vector<LogLine> LogReader::LinesOfCall(const std::string& thread, std::string_view function,
                                            std::string_view lastLine) const {
  constexpr std::chrono::milliseconds step(50);
  constexpr int steps = 50;
  for (int i = 0; i < steps; ++i) {
    std::vector<LogLine> lines = LinesOf(thread);
    auto last = std::find_if(lines.rbegin(), lines.rend(), [&](const LogLine& each) {
      return each.tag == function && each.message.starts_with(lastLine);
    });
    if (last != lines.rend()) {
      auto before = std::find_if(last + 1, lines.rend(), IsExported);
      return {before.base(), last.base()};
    }
    std::this_thread::sleep_for(step);
  }
  return LinesOf(thread);
}
