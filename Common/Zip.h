// Zip archives: unpacking one into a folder, and reading one member into memory. Static operations without shared
// state; calls on different folders may run side by side, and so may calls that unpack one archive into one folder:
// a file appears there only when it is whole. A call uses one thread per core while it runs.
#ifndef QUARVEL_COMMON_ZIP_H
#define QUARVEL_COMMON_ZIP_H

#include <minizip/unzip.h>
#include <time.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

class CLogger;
class CSharedFolder;

class CZip {
 public:
  // What the operations return; 0 is success.
  enum Result : int32_t {
    kCannotOpen = -1,            // the archive cannot be opened, or a target file cannot be created
    kNoFolder = -2,              // the destination folder cannot be created
    kNoFirstMember = -100,       // the first member cannot be reached
    kNoMemory = -101,            // the transfer buffer cannot be allocated
    kBadMemberInfo = -102,       // member information cannot be read
    kCannotOpenMember = -103,    // a member cannot be opened
    kNotFound = -104,            // the member asked for is not there
    kUntrustedFolder = -105,     // the destination could be tampered with by others (told by callers)
    kMemberLeavesFolder = -106,  // a member's name leads out of the destination
    kWriteFailed = -107,         // a file could not be written in full
    kNoRoom = -108,              // what is to be written exceeds the room on the disk
    kFolderInUse = -109,         // others rely on files that would be replaced
    kCheckFailed = -1001,        // the member was read but its check failed
  };

  // Sizes in bytes of files that were left as they are, by the names of their members.
  class KeptFiles {
   public:
    std::optional<uint64_t> SizeOf(std::string_view name) const;

   private:
    friend class CZipExtraction;
    std::unique_ptr<const std::string> m_names;  // of all members, one after the other
    std::unordered_map<std::string_view, uint64_t> m_sizes;
  };

  // Unpacks `zipFile` into `destFolder`, which is created with one missing parent. With `skipUnchanged`, files that are
  // there with the right size stay as they are, unread. Of members that share a target one is unpacked: the last, or,
  // with `skipUnchanged`, the first of the last ones that are equally long. Files get the archive's dates, in local
  // time. A member that cannot be read to its end leaves a short file, and that is no failure. At a failure the
  // earliest one in the archive's order is logged and returned, and files written so far stay. `logger` may be null.
  static int32_t ExtractZip(const char* zipFile, const char* destFolder, bool skipUnchanged, CLogger* logger);

  // The same, with `skipUnchanged`, into a folder that others rely on too: no file of it is replaced without asking.
  // The archive is read through `descriptor`; `zipFile` is its name in messages.
  static int32_t ExtractZip(const char* zipFile, int descriptor, CSharedFolder& destination, CLogger* logger,
                            KeptFiles* kept);

  // Appends the contents of one member to `content`; when it cannot be read, `content` is emptied.
  static int32_t ReadInternalFile(const char* zipFile, const char* memberName, std::string& content, CLogger* logger);

  // Whether the file on disk must be written: it is missing, or its size is not the member's. Its date is not compared.
  static bool DetectChange(const char* file, const unz_file_info& info);

  // Sets the access and modification time of a file; returns what the system does.
  static int UpdateTime(const char* file, const tm_unz& date);

  // An archive's date, which is local time, as seconds since the epoch.
  static time_t MakeTime(const tm_unz& date);
};

#endif
