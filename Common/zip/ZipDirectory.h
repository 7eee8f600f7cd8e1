// The directory of a zip archive, entry by entry. minizip finds it; the entries are read here, by minizip's rules, with
// the one thing that it leaves out: sizes and places in the longer fields of zip64 count. Used by one thread.
#ifndef QUARVEL_COMMON_ZIP_ZIPDIRECTORY_H
#define QUARVEL_COMMON_ZIP_ZIPDIRECTORY_H

#include <minizip/unzip.h>

#include <cstdint>
#include <string_view>

#include "Common/FileUtil.h"
#include "Common/zip/ZipArchive.h"

class CZipDirectory {
 public:
  // `file` must outlive the directory.
  explicit CZipDirectory(const CZipFile& file);

  // Whether the file is a zip archive.
  bool IsOpen() const { return m_isArchive; }

  // Turns to the first entry, or to the one after the current. Returns minizip's status: UNZ_OK, or
  // UNZ_END_OF_LIST_OF_FILE after the last, or what hinders reading the entry.
  int First();
  int Next();

  // The current entry.
  const ZipMemberPlace& place() const { return m_place; }
  const tm_unz& date() const { return m_date; }
  // A Unix file mode in their upper half.
  uint32_t attributes() const { return m_attributes; }
  // At most kPathSize bytes, and never beyond a NUL. Valid until the next call.
  std::string_view name() const { return m_name; }

 private:
  int Read();
  void ReadLongFields(uint64_t position, size_t size);

  CZipReader m_reader;
  bool m_isArchive = false;
  int m_firstStatus = UNZ_OK;  // minizip's, for the first entry
  uint64_t m_firstEntry = 0;   // position in the file
  uint64_t m_shift = 0;        // what stands before the archive in the file, in bytes
  uint64_t m_count = 0;        // of entries, as the archive states it

  uint64_t m_index = 0;
  uint64_t m_position = 0;  // of the current entry in the file
  uint64_t m_next = 0;
  ZipMemberPlace m_place{};
  tm_unz m_date{};
  uint32_t m_attributes = 0;
  uint8_t m_nameBytes[CFileUtil::kPathSize];
  std::string_view m_name;
};

#endif
