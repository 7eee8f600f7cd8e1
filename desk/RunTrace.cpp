#include "desk/RunTrace.h"

#include <fmt/format.h>
#include <stdlib.h>
#include <string.h>

#include <filesystem>
#include <fstream>

#include "desk/Failure.h"
#include "trace/Record.h"

namespace {

namespace fs = std::filesystem;

// A trace keeps within a bound; what is longer is none.
std::string ReadPart(const std::string& file) {
  constexpr uint64_t longest = 64 << 20;
  std::error_code error;
  if (!fs::is_regular_file(file, error) || fs::file_size(file, error) > longest || error) return "";
  std::string text(static_cast<size_t>(fs::file_size(file, error)), '\0');
  std::ifstream in(file, std::ios::binary);
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(in.gcount()));
  return text;
}

}  // namespace

std::string RecordRun(const std::string& chosen, const std::string& usual) {
  const char* elsewhere = getenv("TESSVIK_TRACE");
  if (chosen.empty() && elsewhere && *elsewhere) return fs::absolute(elsewhere);
  const std::string file = chosen.empty() ? usual : fs::absolute(chosen).string();
  const int error = ttRecord(file.c_str());
  if (error == 0) return file;
  if (chosen.empty()) return "";
  throw Failure(ExitStatus::kUsage,
                fmt::format("The trace {} cannot be written ({}); choose another with --trace.", file,
                            error == EEXIST ? "the file is there and is no trace" : strerror(error)));
}

std::string ReadRunTrace(const std::string& file) {
  std::string older = ReadPart(file + ".1");
  if (!older.empty() && !older.ends_with('\n')) older += '\n';
  return older + ReadPart(file);
}
