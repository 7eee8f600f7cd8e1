// Zip archives: unpacking one into a folder, and reading one member into memory. Static operations without shared
// state; calls on different folders may run side by side, and so may calls that unpack one archive into one folder:
// a file appears there only when it is whole. A call uses one thread per core while it runs.
#ifndef QUARVEL_COMMON_ZIP_H
#define QUARVEL_COMMON_ZIP_H

#include <minizip/unzip.h>
#include <time.h>

#include <cstdint>
#include <string>
#include <unordered_map>

class CLogger;

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
    kUntrustedFolder = -105,     // the destination could be tampered with by others
    kMemberLeavesFolder = -106,  // a member's name leads out of the destination
    kWriteFailed = -107,         // a file could not be written in full
    kNoRoom = -108,              // what is to be written exceeds the room on the disk
    kCheckFailed = -1001,        // the member was read but its check failed
  };

  // Whom the destination may belong to.
  enum FolderTrust {
    kAnyFolder,
    kOwnFolder,  // it must be a real folder of the effective user that nobody else may write to
  };

  // Sizes in bytes of files that were left as they are, by their members' names.
  using KeptFiles = std::unordered_map<std::string, uint64_t>;

  // Unpacks `zipFile` into `destFolder`, which is created with one missing parent. With `skipUnchanged`, files that are
  // there with the right size stay as they are, unread. Files get the archive's dates, in local time. A member that
  // cannot be read to its end leaves a short file, and that is no failure. At a failure the earliest one in the
  // archive's order is logged and returned, and files written so far stay. `logger` may be null, and so may `kept`,
  // which spares the caller from looking once more at files that were just looked at.
  static int32_t ExtractZip(const char* zipFile, const char* destFolder, bool skipUnchanged, CLogger* logger,
                            FolderTrust trust = kAnyFolder, KeptFiles* kept = nullptr);

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
