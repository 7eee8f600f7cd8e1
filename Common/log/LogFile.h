// The file below a log. Several processes may append to one file and one of them may trim it meanwhile: whoever writes
// holds an advisory lock on the file and follows its path when another file has taken its place, so that every line
// arrives whole. One logger owns it and calls it under its own lock.
#ifndef QUARVEL_COMMON_LOG_LOGFILE_H
#define QUARVEL_COMMON_LOG_LOGFILE_H

#include <cstdint>
#include <string>
#include <string_view>

class LogFile {
 public:
  LogFile() = default;
  ~LogFile() { Close(); }
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  // Opens for appending, making the file if need be. False with errno set when that fails, or when it never could be a
  // log: opening waits for nobody.
  bool Open(const std::string& path);
  bool IsOpen() const { return m_fd >= 0; }
  void Close();

  // Appends whole lines with one write. What a full disk, a quota or a size limit leaves no room for is dropped, and a
  // line that was cut is taken back.
  void Append(std::string_view lines);

  // Cuts a file of more than `maxSize` bytes down to the whole lines among its last `maxSize - shrinkSize`. When that
  // fails, or when another process is at it, the file stays as it is.
  void Trim(int64_t maxSize, int64_t shrinkSize);

 private:
  class Hold;

  bool LockAndFollow();
  bool TryLock() const;
  bool Follow();
  void TakeBackCutLine(std::string_view written) const;
  void KeepFrom(int64_t offset);

  int m_fd = -1;
  bool m_holderIsStuck = false;  // the lock could not be had last time
  std::string m_path;
};

#endif
