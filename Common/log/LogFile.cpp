#include "Common/log/LogFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <thread>
#include <utility>
#include <vector>

#include "Common/QuietWriter.h"
#include "Common/UniqueFd.h"
#include "Common/log/LogPath.h"

namespace {

// A process that holds the lock is at work for a millisecond or so, unless it was stopped in the middle: then lines go
// their way without the lock, and later ones no longer wait for it.
constexpr int kLockTries = 500;
constexpr std::chrono::milliseconds kLockPause{1};

constexpr size_t kCopySize = 65536;

// Opening a pipe without a reader fails at once instead of waiting for one.
int OpenToAppend(const std::string& path) {
  return open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
}

bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool EndsLine(char c) {
  return c == '\n' || c == '\r' || c == '\0';
}

// Copies what follows the first line end at or after the reader's offset.
bool CopyWholeLines(int reader, int64_t offset, int writer, const CQuietWriter& quiet) {
  std::vector<char> buffer(kCopySize);
  bool inFirstLine = true;
  for (;;) {
    const ssize_t count = pread(reader, buffer.data(), buffer.size(), offset);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count == 0;
    offset += count;
    std::string_view chunk(buffer.data(), static_cast<size_t>(count));
    while (inFirstLine && !chunk.empty()) {
      inFirstLine = !EndsLine(chunk.front());
      chunk.remove_prefix(1);
    }
    if (quiet.Write(writer, chunk) != chunk.size()) return false;
  }
}

}  // namespace

// The advisory lock on the file that the path names now.
class LogFile::Hold {
 public:
  explicit Hold(LogFile& file) : m_file(file), m_locked(file.LockAndFollow()) {}
  ~Hold() {
    if (m_locked) flock(m_file.m_fd, LOCK_UN);
  }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;
  bool locked() const { return m_locked; }

 private:
  LogFile& m_file;
  bool m_locked;
};

bool LogFile::Open(const std::string& path) {
  Close();
  m_fd = OpenToAppend(path);
  m_path = path.starts_with('/') ? path : WorkingFolder() + path;  // the host may change its folder meanwhile
  return IsOpen();
}

void LogFile::Close() {
  if (IsOpen()) close(std::exchange(m_fd, -1));
}

// Returns whether the lock is held, on the file that the path names now.
bool LogFile::LockAndFollow() {
  const int tries = m_holderIsStuck ? 1 : kLockTries;
  bool locked = false;
  for (int i = 0; i < tries && !locked; ++i) {
    if (TryLock()) {
      locked = !Follow();
    } else {
      std::this_thread::sleep_for(kLockPause);
    }
  }
  if (!locked) Follow();
  m_holderIsStuck = !locked;
  return locked;
}

// A file system that has no locks counts as holding it.
bool LogFile::TryLock() const {
  return flock(m_fd, LOCK_EX | LOCK_NB) == 0 || (errno != EWOULDBLOCK && errno != EINTR);
}

// Changes over to the file that has taken the place of this one, which gives up the lock; returns whether it did. Where
// no file can be had under the path any more, this one stays in use.
bool LogFile::Follow() {
  struct stat here = {};
  struct stat there = {};
  if (fstat(m_fd, &here) != 0) return false;
  if (stat(m_path.c_str(), &there) == 0 && SameFile(here, there)) return false;
  const int fresh = OpenToAppend(m_path);
  if (fresh < 0) return false;
  close(std::exchange(m_fd, fresh));
  return true;
}

void LogFile::Append(std::string_view lines) {
  if (!IsOpen() || lines.empty()) return;
  const CQuietWriter quiet;
  const Hold hold(*this);
  const size_t written = quiet.Write(m_fd, lines);
  if (written < lines.size()) TakeBackCutLine(lines.substr(0, written));
}

void LogFile::TakeBackCutLine(std::string_view written) const {
  const size_t cut = written.size() - (written.rfind('\n') + 1);
  struct stat status = {};
  if (cut == 0 || fstat(m_fd, &status) != 0 || !S_ISREG(status.st_mode)) return;
  const off_t end = lseek(m_fd, 0, SEEK_CUR);
  if (end != status.st_size) return;  // somebody has written behind it without the lock
  if (ftruncate(m_fd, end - static_cast<off_t>(cut)) != 0) return;
}

void LogFile::Trim(int64_t maxSize, int64_t shrinkSize) {
  if (!IsOpen()) return;
  const Hold hold(*this);
  struct stat status = {};
  if (!hold.locked() || fstat(m_fd, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size <= maxSize) return;
  KeepFrom(status.st_size - maxSize + shrinkSize);
}

// Puts a copy of the rest in the file's place. The lock on the old file goes with it, when the copy is complete.
void LogFile::KeepFrom(int64_t offset) {
  const UniqueFd reader(open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!reader || fstat(reader.get(), &status) != 0) return;
  const std::string temporary = m_path + ".tmp";
  unlink(temporary.c_str());  // left by a process that was killed while it trimmed
  UniqueFd writer(open(temporary.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!writer) return;
  const bool complete = CopyWholeLines(reader.get(), offset, writer.get(), CQuietWriter()) &&
                        fchmod(writer.get(), status.st_mode & 07777) == 0 &&
                        rename(temporary.c_str(), m_path.c_str()) == 0;
  if (!complete) {
    unlink(temporary.c_str());
    return;
  }
  close(std::exchange(m_fd, writer.release()));
}
