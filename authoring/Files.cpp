#include "authoring/Files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "authoring/Failure.h"

namespace authoring {

namespace {

constexpr size_t kBlockSize = 64 * 1024;

using FileHandle = std::unique_ptr<FILE, decltype([](FILE* file) { std::fclose(file); })>;

[[noreturn]] void Fail(const char* doing, const std::string& path, int error, const char* remedy) {
  throw Failure(ExitStatus::kFile, fmt::format("Cannot {} {}: {}; {}.", doing, path, std::strerror(error), remedy));
}

}  // namespace

void ReadBlocks(const std::string& path, const std::function<void(std::string_view)>& take) {
  constexpr const char* kRemedy = "check the path and its permissions";
  FileHandle file(std::fopen(path.c_str(), "rb"));
  if (!file) Fail("read", path, errno, kRemedy);
  std::vector<char> block(kBlockSize);
  while (size_t count = std::fread(block.data(), 1, block.size(), file.get())) take({block.data(), count});
  if (std::ferror(file.get())) Fail("read", path, errno, kRemedy);
}

std::string ReadFile(const std::string& path) {
  std::string content;
  ReadBlocks(path, [&content](std::string_view block) { content.append(block); });
  return content;
}

void WriteFile(const std::string& path, std::string_view content) {
  constexpr const char* kRemedy = "choose a folder that exists and can be written";
  FileHandle file(std::fopen(path.c_str(), "wb"));
  if (!file) Fail("write", path, errno, kRemedy);
  bool whole = std::fwrite(content.data(), 1, content.size(), file.get()) == content.size();
  if (std::fclose(file.release()) == 0 && whole) return;
  int error = errno;
  std::error_code ignored;
  std::filesystem::remove(path, ignored);  // half a file would pass for the whole one
  Fail("write", path, error, kRemedy);
}

void SetModificationTime(const std::string& path, int64_t seconds) {
  timespec times[2] = {{seconds, 0}, {seconds, 0}};
  if (utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) Fail("date", path, errno, "check its permissions");
}

std::filesystem::path ExtractionFolder(const std::string& bundleFile) {
  struct stat status {};
  if (stat(bundleFile.c_str(), &status) != 0) return {};
  auto size = static_cast<uint64_t>(status.st_size);
  uint64_t time = (static_cast<uint64_t>(status.st_mtime) << 32) | (size >> 32);
  return fmt::format("/tmp/{}_{}", static_cast<uint32_t>(size), time);
}

ScratchFolder::ScratchFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "quarvel-bundle-XXXXXX").string();
  if (!mkdtemp(pattern.data())) Fail("make the folder", pattern, errno, "free some space or set TMPDIR");
  m_path = pattern;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
}

}  // namespace authoring
