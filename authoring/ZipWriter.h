// Writes a bundle's archive so that the same members give the same bytes: every member carries one fixed date and the
// same attributes, and stands where the caller put it. The archive is complete only after Close; without it the
// destructor removes nothing, it only lets go of the file.
#ifndef QUARVEL_AUTHORING_ZIPWRITER_H
#define QUARVEL_AUTHORING_ZIPWRITER_H

#include <cstdint>
#include <string>
#include <string_view>

#include "authoring/Effort.h"

namespace authoring {

class ZipWriter {
 public:
  // Upper half: a Unix mode. A regular file is 0100644, a folder 040755, whose bit 30 is what the library looks at.
  static constexpr uint32_t kFileAttributes = 0100644u << 16;
  static constexpr uint32_t kFolderAttributes = 040755u << 16;

  // Starts a new file, which messages call `shownPath` where that is given. All operations throw Failure (kFile).
  explicit ZipWriter(const std::string& path, const std::string& shownPath = {});
  ~ZipWriter();
  ZipWriter(const ZipWriter&) = delete;
  ZipWriter& operator=(const ZipWriter&) = delete;

  void AddBytes(const std::string& member, std::string_view content, uint32_t attributes = kFileAttributes);
  void AddFile(const std::string& member, const std::string& file);
  // An entry for a folder, told from a file by the Unix folder bit of its attributes. Bundles do without: the library
  // makes the folders of the files.
  void AddFolder(const std::string& member);
  // An entry of which the archive says that it unpacks to `claimedSize` bytes, for archives that must be wrong. The
  // packed bytes are `packed` as they are.
  void AddClaiming(const std::string& member, std::string_view packed, uint64_t claimedSize);

  // Bytes that are written from now on are counted there.
  void CountInto(Effort& effort) { m_effort = &effort; }

  void Close();

 private:
  enum class Packing { kDeflate, kStore, kAsGiven };
  void Begin(const std::string& member, uint32_t attributes, bool large, Packing packing = Packing::kDeflate);
  void Write(std::string_view block);
  void End();
  void Check(int result) const;
  void EndLarge() const;

  std::string m_path;
  std::string m_shownPath;
  void* m_zip;
  uint64_t m_members = 0;
  Effort* m_effort = nullptr;
};

}  // namespace authoring

#endif
