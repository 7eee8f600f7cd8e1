// Reading and writing files with failures that say what to do. No shared state.
#ifndef QUARVEL_AUTHORING_FILES_H
#define QUARVEL_AUTHORING_FILES_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace authoring {

// The whole content. Throws Failure (kFile) when the file cannot be read.
std::string ReadFile(const std::string& path);

// Hands over the content in blocks of at most 64 KiB, in order.
void ReadBlocks(const std::string& path, const std::function<void(std::string_view)>& take);

// Replaces the file's content. Throws Failure (kFile) when it cannot be written.
void WriteFile(const std::string& path, std::string_view content);

// Sets the modification time, in seconds since the epoch.
void SetModificationTime(const std::string& path, int64_t seconds);

// The folder that the library extracts a bundle file into: named for the file's size and modification time.
std::filesystem::path ExtractionFolder(const std::string& bundleFile);

// A folder of its own that goes with the object.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  std::string operator/(const std::string& name) const { return (m_path / name).string(); }

 private:
  std::filesystem::path m_path;
};

}  // namespace authoring

#endif
