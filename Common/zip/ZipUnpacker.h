// Writes members of an archive as files below a folder. Each thread that takes part in an extraction has one of its
// own.
#ifndef QUARVEL_COMMON_ZIP_ZIPUNPACKER_H
#define QUARVEL_COMMON_ZIP_ZIPUNPACKER_H

#include <time.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Common/FolderTree.h"
#include "Common/QuietWriter.h"
#include "Common/SharedFolder.h"
#include "Common/Zip.h"
#include "Common/zip/ZipArchive.h"

// What stands where a member's file belongs.
enum class ZipTarget : uint8_t { kMissing, kUnchanged, kChanged };

class CZipUnpacker {
 public:
  struct Fault {
    int32_t result;  // a CZip::Result
    int error;       // minizip's status, or errno
    std::string reason{};
  };

  // `file`, `tree` and `shared` must outlive it; `shared`, which may be null, is asked before a file is replaced. With
  // `skipUnchanged`, files that have the right size when their turn comes are left alone. What files hold does not
  // depend on `inflation`.
  CZipUnpacker(const CZipFile& file, const CFolderTree& tree, CSharedFolder* shared, bool skipUnchanged,
               CZipMember::Inflation inflation);

  // Writes one member under its name; nothing when it went well.
  std::optional<Fault> Write(std::string_view name, const ZipMemberPlace& place, const tm_unz& date);
  // Only makes sure that the member could be read.
  std::optional<Fault> Check(const ZipMemberPlace& place);

  // What `name` below the cursor's tree is, where a regular file of `size` bytes belongs. See CZip::DetectChange.
  static ZipTarget Look(CFolderCursor& cursor, std::string_view name, uint64_t size, const tm_unz& date);

 private:
  ZipTarget LookAgain(std::string_view name, const ZipMemberPlace& place, const tm_unz& date);
  std::optional<Fault> AskToReplace();
  std::optional<Fault> Fill(int fd, const ZipMemberPlace& place, const tm_unz& date);
  int64_t Copy(int fd);
  time_t TimeOf(const tm_unz& date);

  CQuietWriter m_quiet;
  CZipReader m_reader;
  CZipMember m_member;
  CFolderCursor m_cursor;
  CSharedFolder* m_shared;
  std::vector<uint8_t> m_transfer;
  uint64_t m_written = 0;  // bytes of the member that is being unpacked
  const bool m_skipUnchanged;
  const CZipMember::Inflation m_inflation;
  std::optional<tm_unz> m_latestDate;  // converting a date is slow, and neighbours often share theirs
  time_t m_latestTime = 0;
};

#endif
