#include "authoring/ZipWriter.h"

#include <fmt/format.h>
#include <minizip/zip.h>

#include <algorithm>
#include <filesystem>

#include "authoring/Failure.h"
#include "authoring/Files.h"

namespace authoring {

namespace {

// 1 January 1980, midnight: the first date that the format can hold.
constexpr uLong kMemberDate = (1u << 21) | (1u << 16);

constexpr uLong kMadeByUnix = (3u << 8) | 20u;

// From this size on a member needs the 64-bit form of its sizes; below the format's own limit, for members that
// deflate makes larger.
constexpr uint64_t kLargeMember = 0xF0000000;

// The largest size that needs no 64-bit form.
constexpr uint64_t kLargestSmallSize = 0xFFFFFFFE;

constexpr size_t kLargestBlock = 1u << 30;

}  // namespace

ZipWriter::ZipWriter(const std::string& path, const std::string& shownPath)
    : m_shownPath(shownPath.empty() ? path : shownPath), m_zip(zipOpen64(path.c_str(), APPEND_STATUS_CREATE)) {
  if (!m_zip) {
    throw Failure(ExitStatus::kFile,
                  fmt::format("Cannot write {}; choose a folder that exists and can be written.", m_shownPath));
  }
}

ZipWriter::~ZipWriter() {
  if (m_zip) zipClose(m_zip, nullptr);
}

void ZipWriter::AddBytes(const std::string& member, std::string_view content, uint32_t attributes) {
  Begin(member, attributes, content.size() >= kLargeMember);
  Write(content);
  End();
}

void ZipWriter::AddFile(const std::string& member, const std::string& file) {
  std::error_code unreadable;  // an unreadable file is reported by ReadBlocks
  uintmax_t size = std::filesystem::file_size(file, unreadable);
  Begin(member, kFileAttributes, !unreadable && size >= kLargeMember);
  ReadBlocks(file, [this](std::string_view block) { Write(block); });
  End();
}

void ZipWriter::AddFolder(const std::string& member) {
  AddBytes(member, {}, kFolderAttributes);
}

void ZipWriter::AddClaiming(const std::string& member, std::string_view packed, uint64_t claimedSize) {
  Begin(member, kFileAttributes, claimedSize > kLargestSmallSize, Packing::kAsGiven);
  Write(packed);
  Check(zipCloseFileInZipRaw64(m_zip, claimedSize, 0));
}

void ZipWriter::Close() {
  int result = zipClose(m_zip, nullptr);
  m_zip = nullptr;
  Check(result);
}

void ZipWriter::Begin(const std::string& member, uint32_t attributes, bool large, Packing packing) {
  zip_fileinfo info{};
  info.dosDate = kMemberDate;
  info.external_fa = attributes;
  Check(zipOpenNewFileInZip4_64(m_zip, member.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED,
                                Z_BEST_COMPRESSION, packing == Packing::kAsGiven ? 1 : 0, -MAX_WBITS, DEF_MEM_LEVEL,
                                Z_DEFAULT_STRATEGY, nullptr, 0, kMadeByUnix, 0, large ? 1 : 0));
}

void ZipWriter::Write(std::string_view block) {
  while (!block.empty()) {
    std::string_view part = block.substr(0, kLargestBlock);
    Check(zipWriteInFileInZip(m_zip, part.data(), static_cast<unsigned>(part.size())));
    block.remove_prefix(part.size());
  }
}

void ZipWriter::End() {
  Check(zipCloseFileInZip(m_zip));
}

void ZipWriter::Check(int result) const {
  if (result == ZIP_OK) return;
  throw Failure(ExitStatus::kFile,
                fmt::format("Cannot write {} to its end (archive error {}); free some space and try again.",
                            m_shownPath, result));
}

}  // namespace authoring
