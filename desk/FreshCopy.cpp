#include "desk/FreshCopy.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>

#include "desk/Failure.h"

namespace fs = std::filesystem;

FreshCopy::FreshCopy(const std::string& bundle) {
  std::string pattern = fs::temp_directory_path() / "quarvel-fresh-XXXXXX";
  if (!mkdtemp(pattern.data())) {
    throw Failure(ExitStatus::kUsage, "No folder can be made for a fresh copy; free some space or set TMPDIR.");
  }
  m_folder = pattern;
  std::error_code error;
  fs::copy_file(bundle, File(), error);
  if (error) {
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
    throw Failure(ExitStatus::kBundle, fmt::format("{} cannot be copied ({}); check the path, its permissions and the "
                                                   "room in the temporary folder.",
                                                   bundle, error.message()));
  }
  timespec time{static_cast<time_t>(std::random_device()() >> 1), 0};
  timespec times[2] = {time, time};
  utimensat(AT_FDCWD, File().c_str(), times, 0);
}

FreshCopy::~FreshCopy() {
  std::error_code ignored;
  if (std::string unpacked = UnpackedFolder(File()); !unpacked.empty()) fs::remove_all(unpacked, ignored);
  fs::remove_all(m_folder, ignored);
}

std::string UnpackedFolder(const std::string& bundle) {
  struct stat status {};
  if (stat(bundle.c_str(), &status) != 0) return "";
  auto size = static_cast<uint64_t>(status.st_size);
  uint64_t time = (static_cast<uint64_t>(status.st_mtime) << 32) | (size >> 32);
  return fmt::format("/tmp/{}_{}", static_cast<uint32_t>(size), time);
}
