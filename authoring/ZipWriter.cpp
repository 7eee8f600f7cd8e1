#include "authoring/ZipWriter.h"

#include <fmt/format.h>
#include <minizip/zip.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

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

// An archive of more members needs a 64-bit end of its directory, which minizip writes for large archives alone.
constexpr uint64_t kMostCounted = 0xFFFF;
constexpr uint32_t kUnsaid = 0xFFFFFFFF;
constexpr size_t kEndSize = 22;  // of the directory's plain end, without a comment

void Append(std::string& out, int size, uint64_t value) {
  for (int i = 0; i < size; ++i) out += static_cast<char>(value >> (8 * i));
}

uint32_t Number(const std::string& bytes, size_t at) {
  uint32_t value = 0;
  for (size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

}  // namespace

ZipWriter::ZipWriter(const std::string& path, const std::string& shownPath)
    : m_path(path),
      m_shownPath(shownPath.empty() ? path : shownPath),
      m_zip(zipOpen64(path.c_str(), APPEND_STATUS_CREATE)) {
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
  Begin(member, kFolderAttributes, false, Packing::kStore);
  End();
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
  if (m_members > kMostCounted) EndLarge();
}

void ZipWriter::EndLarge() const {
  std::fstream file(m_path, std::ios::in | std::ios::out | std::ios::binary);
  file.exceptions(std::ios::failbit | std::ios::badbit);
  try {
    std::string end(kEndSize, '\0');
    file.seekg(-static_cast<std::streamoff>(kEndSize), std::ios::end);
    const auto position = static_cast<uint64_t>(file.tellg());
    file.read(end.data(), static_cast<std::streamsize>(end.size()));
    const uint64_t directorySize = Number(end, 12);
    const uint64_t directoryStart = Number(end, 16);
    if (directoryStart == kUnsaid) return;  // minizip has written one: the archive is that large
    std::string large;
    Append(large, 4, 0x06064b50);  // the 64-bit end of the directory
    Append(large, 8, 44);          // what follows of it
    Append(large, 2, 45 | 3 << 8);
    Append(large, 2, 45);
    Append(large, 8, 0);  // this disk, and the directory's
    Append(large, 8, m_members);
    Append(large, 8, m_members);
    Append(large, 8, directorySize);
    Append(large, 8, directoryStart);
    Append(large, 4, 0x07064b50);  // where that stands
    Append(large, 4, 0);
    Append(large, 8, position);
    Append(large, 4, 1);
    file.seekp(static_cast<std::streamoff>(position));
    file << large << end << std::flush;
  } catch (const std::ios::failure&) {
    Check(ZIP_ERRNO);
  }
}

void ZipWriter::Begin(const std::string& member, uint32_t attributes, bool large, Packing packing) {
  ++m_members;
  zip_fileinfo info{};
  info.dosDate = kMemberDate;
  info.external_fa = attributes;
  Check(zipOpenNewFileInZip4_64(m_zip, member.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                                packing == Packing::kStore ? 0 : Z_DEFLATED, Z_BEST_COMPRESSION,
                                packing == Packing::kAsGiven ? 1 : 0, -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY,
                                nullptr, 0, kMadeByUnix, 0, large ? 1 : 0));
}

void ZipWriter::Write(std::string_view block) {
  while (!block.empty()) {
    std::string_view part = block.substr(0, kLargestBlock);
    Check(zipWriteInFileInZip(m_zip, part.data(), static_cast<unsigned>(part.size())));
    if (m_effort) m_effort->Add(part.size());
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
