#include <fmt/format.h>
#include <string.h>
#include <unzip.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "trace/Recording.h"

namespace trace {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t kLongest = 256 << 20;  // a trace is bounded; what is longer is something else
constexpr const char* kReportMember = "trace.jsonl";

[[noreturn]] void Fail(const std::string& file, std::string_view why) {
  throw std::invalid_argument(fmt::format("the trace {} cannot be read: {}", file, why));
}

std::string ReadText(const std::string& file) {
  std::error_code error;
  if (!fs::is_regular_file(file, error)) Fail(file, error ? error.message() : "it is no regular file");
  const uint64_t size = fs::file_size(file, error);
  if (error || size > kLongest) Fail(file, error ? error.message() : "it is too long for a trace");
  std::string text(static_cast<size_t>(size), '\0');
  std::ifstream in(file, std::ios::binary);
  if (!in) Fail(file, strerror(errno));
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(in.gcount()));
  return text;
}

struct CloseZip {
  void operator()(void* zip) const { unzClose(zip); }
};

std::string ReadReport(const std::string& file) {
  const std::unique_ptr<void, CloseZip> zip(unzOpen64(file.c_str()));
  if (!zip) Fail(file, "it is a damaged zip file");
  if (unzLocateFile(zip.get(), kReportMember, 1) != UNZ_OK) {
    Fail(file, fmt::format("it is a zip file without a member {}, as `quarvel report` writes it", kReportMember));
  }
  std::string text;
  std::array<char, 65536> part{};
  int count = unzOpenCurrentFile(zip.get());
  while (count >= 0 && text.size() <= kLongest) {
    count = unzReadCurrentFile(zip.get(), part.data(), static_cast<unsigned>(part.size()));
    if (count <= 0) break;
    text.append(part.data(), static_cast<size_t>(count));
  }
  if (count != 0 || unzCloseCurrentFile(zip.get()) != UNZ_OK) Fail(file, "the report's trace is damaged");
  return text;
}

// The half that was full stands beside the one that was written last.
std::string OlderHalf(const std::string& file) {
  const std::string older = file + ".1";
  std::string text = fs::is_regular_file(older) ? ReadText(older) : "";
  if (!text.starts_with("{\"trace\":")) return "";
  if (!text.ends_with('\n')) text += '\n';
  return text;
}

}  // namespace

Recording ReadRecordingFile(const std::string& file) {
  std::string text = ReadText(file);
  text = text.starts_with("PK") ? ReadReport(file) : OlderHalf(file) + text;
  try {
    return ReadRecording(text);
  } catch (const std::invalid_argument& problem) {
    Fail(file, problem.what());
  }
}

}  // namespace trace
