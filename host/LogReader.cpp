#include "host/LogReader.h"

#include <fmt/format.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

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
