// Writes members of an archive as files below a folder. Each thread that takes part in an extraction has one of its
// own.
#ifndef QUARVEL_COMMON_ZIP_ZIPUNPACKER_H
#define QUARVEL_COMMON_ZIP_ZIPUNPACKER_H

#include <signal.h>
#include <time.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Common/FolderTree.h"
#include "Common/Zip.h"
#include "Common/zip/ZipArchive.h"

// While it lives, a write beyond the process's file size limit fails on this thread instead of ending the process.
class CQuietSizeLimit {
 public:
  CQuietSizeLimit();
  ~CQuietSizeLimit();
  CQuietSizeLimit(const CQuietSizeLimit&) = delete;
  CQuietSizeLimit& operator=(const CQuietSizeLimit&) = delete;

 private:
  sigset_t m_before;
  bool m_wasPending;
};

class CZipUnpacker {
 public:
  struct Fault {
    int32_t result;  // a CZip::Result
    int error;       // minizip's status, or errno
  };

  // `file` and `tree` must outlive it. With `lookAgain`, files that have the right size when their
  // turn comes are left alone.
  CZipUnpacker(const CZipFile& file, const CFolderTree& tree, bool lookAgain);

  // Writes one member under its name; nothing when it went well. `name` must stay as it is until the next call.
  std::optional<Fault> Write(std::string_view name, const ZipMemberPlace& place, const tm_unz& date);

  // Whether `name` below the cursor's tree is anything but a regular file of `size` bytes. See CZip::DetectChange.
  static bool MustWrite(CFolderCursor& cursor, std::string_view name, uint64_t size, const tm_unz& date);

 private:
  std::optional<Fault> Fill(int fd);
  time_t TimeOf(const tm_unz& date);

  CQuietSizeLimit m_quiet;
  CZipReader m_reader;
  CZipMember m_member;
  CFolderCursor m_cursor;
  std::vector<uint8_t> m_transfer;
  bool m_lookAgain;
  std::string m_leaf;
  std::optional<tm_unz> m_latestDate;  // converting a date is slow, and neighbours often share theirs
  time_t m_latestTime = 0;
};

#endif
