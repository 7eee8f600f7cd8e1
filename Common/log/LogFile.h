// The file below a log. Several processes append to one file, and one of them trims it meanwhile; every line arrives
// whole, and nobody waits for anybody. One logger owns it and calls it under its own lock.
//
// Nothing is held from one batch of lines to the next: a batch is appended by opening what the path names now, one
// write and closing. Trimming puts a shortened copy into the file's place, and no line may go to the file that is about
// to be replaced. So the trimmer takes a lease on it: the system grants one only while nobody has the file open for
// writing, and while it lasts nobody can open it for writing. A writer that meets a lease keeps its lines and comes
// again; a trimmer that meets a writer, or is met by one before its copy is in place, gives up until the log is idle
// again. A lease is had only by a file's owner, and the locks that those who may only read the file can take say
// nothing here: they neither hold up a line nor keep the file from being trimmed. It ends with its process, and some 45
// seconds after a writer came if its holder has been stopped.
//
// Two trimmers exclude each other by a lock on the copy, which nobody else may open. A leftover that nobody has locked
// belongs to a process that was killed, and is removed.
//
// Where there are no leases (on network file systems, or for a user who may replace a file of somebody else's) trimming
// goes on without: what others write until the copy is in place is taken along, and a line of theirs is lost only when
// it is written into the replaced file still later.
#ifndef QUARVEL_COMMON_LOG_LOGFILE_H
#define QUARVEL_COMMON_LOG_LOGFILE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "Common/UniqueFd.h"

class LogFile {
 public:
  // Opens for appending, making the file if need be. False with errno set when that fails, or when it never could be a
  // log: opening waits for nobody.
  bool Open(const std::string& path);
  bool IsOpen() const { return !m_path.empty(); }
  void Close();

  // Appends whole lines with one write. False when the file cannot be had at the moment: then the caller keeps the
  // lines and tries again later. What a full disk, a quota or a size limit leaves no room for is dropped, and so is
  // what goes to a file that cannot be opened any more; a line that was cut is taken back, unless somebody has written
  // behind it.
  bool Append(std::string_view lines);

  // Cuts a file of more than `maxSize` bytes down to the whole lines among its last `maxSize - shrinkSize`. When that
  // fails, or when somebody else is at the file, it stays as it is.
  void Trim(int64_t maxSize, int64_t shrinkSize);

 private:
  std::string m_path;  // absolute: the host may change its folder meanwhile
  UniqueFd m_stream;   // a pipe or device, which stays open: closing would be the end for who reads the pipe
};

#endif
