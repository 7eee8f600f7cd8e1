#include "authoring/Contents.h"

#include <fmt/format.h>
#include <minizip/unzip.h>

#include <algorithm>
#include <filesystem>

#include "authoring/Failure.h"
#include "authoring/Files.h"

namespace authoring {

namespace fs = std::filesystem;

namespace {

constexpr uint32_t kUnixFolderBit = 1u << 30;
constexpr uint64_t kLargestManifest = 64u << 20;
constexpr uint64_t kLargestInMemory = 1u << 30;
constexpr uLong kLongestName = 0xFFFF;  // the format's own limit

class FolderContents : public Contents {
 public:
  explicit FolderContents(const std::string& path) : Contents(path) {
    std::error_code unreadable;
    for (fs::recursive_directory_iterator entry(path, unreadable), end; !unreadable && entry != end;
         entry.increment(unreadable)) {
      std::error_code odd;
      if (!entry->is_regular_file(odd)) continue;
      uint64_t size = entry->file_size(odd);
      if (odd) continue;
      m_members.push_back({entry->path().lexically_relative(path).generic_string(), size, size});
    }
    if (unreadable) {
      throw Failure(ExitStatus::kFile,
                    fmt::format("Cannot read the folder {}: {}; check its permissions.", path, unreadable.message()));
    }
    std::sort(m_members.begin(), m_members.end(), [](const Member& a, const Member& b) { return a.name < b.name; });
  }
  bool isArchive() const override { return false; }

  std::string Read(const Member& member) override { return ReadFile((fs::path(m_path) / member.name).string()); }
};

class ArchiveContents : public Contents {
 public:
  explicit ArchiveContents(const std::string& path) : Contents(path), m_zip(unzOpen64(path.c_str())) {
    if (!m_zip) {
      throw Failure(ExitStatus::kFile, fmt::format("{} is not a zip archive; name a bundle or a folder.", path));
    }
    std::string name(kLongestName, '\0');
    for (int result = unzGoToFirstFile(m_zip.get()); result == UNZ_OK; result = unzGoToNextFile(m_zip.get())) {
      m_members.push_back(Current(name));
    }
  }
  bool isArchive() const override { return true; }

  std::string Read(const Member& member) override {
    if (member.size > kLargestInMemory) {
      throw Failure(ExitStatus::kFile, fmt::format("{} in {} claims {} bytes, too many to be read at once; use a "
                                                   "smaller bundle.",
                                                   member.name, m_path, member.size));
    }
    Check(unzLocateFile(m_zip.get(), member.name.c_str(), 1));
    Check(unzOpenCurrentFile(m_zip.get()));
    std::string content(static_cast<size_t>(member.size), '\0');
    int count = unzReadCurrentFile(m_zip.get(), content.data(), static_cast<unsigned>(content.size()));
    int closed = unzCloseCurrentFile(m_zip.get());
    Check(count == static_cast<int>(content.size()) ? closed : UNZ_BADZIPFILE);
    return content;
  }

 private:
  struct Close {
    void operator()(void* zip) const { unzClose(zip); }
  };

  // The member that the archive stands at; `buffer` has room for the longest name.
  Member Current(std::string& buffer) {
    unz_file_info64 info{};
    Check(unzGetCurrentFileInfo64(m_zip.get(), &info, buffer.data(), kLongestName, nullptr, 0, nullptr, 0));
    std::string name = buffer.substr(0, info.size_filename);
    bool endsAsFolder = name.ends_with('/');
    return {std::move(name),      info.uncompressed_size,
            info.compressed_size, static_cast<uint32_t>(info.crc),
            endsAsFolder,         (info.external_fa & kUnixFolderBit) != 0};
  }

  void Check(int result) const {
    if (result == UNZ_OK) return;
    throw Failure(ExitStatus::kFile,
                  fmt::format("The archive {} is damaged (error {}); make or get it again.", m_path, result));
  }

  std::unique_ptr<void, Close> m_zip;
};

}  // namespace

std::unique_ptr<Contents> Contents::Open(const std::string& path) {
  std::error_code ignored;
  if (fs::is_directory(path, ignored)) return std::make_unique<FolderContents>(path);
  if (!fs::exists(path, ignored)) {
    throw Failure(ExitStatus::kFile, fmt::format("There is no file or folder {}; check the path.", path));
  }
  return std::make_unique<ArchiveContents>(path);
}

const Member* Contents::Find(const std::string& name) const {
  auto found =
      std::find_if(m_members.begin(), m_members.end(), [&name](const Member& member) { return member.name == name; });
  return found == m_members.end() ? nullptr : &*found;
}

std::optional<std::string> Contents::ReadManifest(const std::string& name) {
  const Member* member = Find(name);
  if (!member) return std::nullopt;
  if (member->size > kLargestManifest) {
    throw Failure(ExitStatus::kFile, fmt::format("{} in {} claims {} bytes, more than any manifest has; "
                                                 "do not use this bundle.",
                                                 name, m_path, member->size));
  }
  return Read(*member);
}

}  // namespace authoring
