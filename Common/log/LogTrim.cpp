// Trimming a log's file: a shortened copy takes its place.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>
#include <vector>

#include "Common/QuietWriter.h"
#include "Common/UniqueFd.h"
#include "Common/log/LogFile.h"

namespace {

constexpr size_t kCopySize = 65536;

bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether the path names the open file, itself or by a link.
bool Names(const std::string& path, int fd) {
  struct stat there = {};
  struct stat here = {};
  return stat(path.c_str(), &there) == 0 && fstat(fd, &here) == 0 && IsSameFile(there, here);
}

// While it lives, nobody can open the file for writing, if the file system has leases and the file is this user's.
class Lease {
 public:
  // When somebody comes to write, the system sends a signal: to this thread alone, and one that means nothing unless
  // the host says so.
  explicit Lease(int fd) : m_fd(fd) {
    const f_owner_ex thread = {F_OWNER_TID, gettid()};
    fcntl(fd, F_SETSIG, SIGURG);
    fcntl(fd, F_SETOWN_EX, &thread);
    m_isHeld = fcntl(fd, F_SETLEASE, F_RDLCK) == 0;
    m_isRefused = !m_isHeld && errno == EAGAIN;
  }
  ~Lease() {
    if (m_isHeld) fcntl(m_fd, F_SETLEASE, F_UNLCK);
  }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  // Somebody has the file open for writing.
  bool isRefused() const { return m_isRefused; }
  // Somebody has come to write meanwhile.
  bool IsBroken() const { return m_isHeld && fcntl(m_fd, F_GETLEASE) != F_RDLCK; }

 private:
  int m_fd;
  bool m_isHeld = false;
  bool m_isRefused = false;
};

// The copy that grows beside the log. Whoever has it locked is the one that trims. Dropped unless it takes the log's
// place.
class Copy {
 public:
  explicit Copy(const std::string& log) : m_path(log + ".tmp") {
    if (!TakeAwayLeftover()) return;
    m_fd = UniqueFd(open(m_path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    m_isMine = m_fd && flock(m_fd.get(), LOCK_EX | LOCK_NB) == 0;
  }
  ~Copy() {
    if (m_isMine) unlink(m_path.c_str());
  }
  Copy(const Copy&) = delete;
  Copy& operator=(const Copy&) = delete;

  bool isMine() const { return m_isMine; }
  int fd() const { return m_fd.get(); }
  bool TakePlaceOf(const std::string& log) {
    if (!Names(m_path, m_fd.get()) || rename(m_path.c_str(), log.c_str()) != 0) return false;
    m_isMine = false;
    return true;
  }

 private:
  // False while another process is at it. The leftover stays locked until this one is done, so that of several that
  // find it one goes on.
  bool TakeAwayLeftover() {
    m_leftover = UniqueFd(open(m_path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!m_leftover && errno != ELOOP) return errno == ENOENT;
    if (m_leftover && (flock(m_leftover.get(), LOCK_EX | LOCK_NB) != 0 || !Names(m_path, m_leftover.get())))
      return false;
    return unlink(m_path.c_str()) == 0;
  }

  std::string m_path;
  UniqueFd m_leftover;
  UniqueFd m_fd;
  bool m_isMine = false;
};

ssize_t ReadAt(int fd, std::vector<char>& buffer, int64_t offset) {
  ssize_t count = 0;
  do {
    count = pread(fd, buffer.data(), buffer.size(), offset);
  } while (count < 0 && errno == EINTR);
  return count;
}

// Behind the first line end at or after the offset, or the file's end; negative when it cannot be read.
int64_t NextLine(int fd, int64_t offset) {
  std::vector<char> buffer(kCopySize);
  ssize_t count = 0;
  while ((count = ReadAt(fd, buffer, offset)) > 0) {
    const std::string_view chunk(buffer.data(), static_cast<size_t>(count));
    const size_t end = chunk.find_first_of(std::string_view("\n\r\0", 3));
    if (end != std::string_view::npos) return offset + static_cast<int64_t>(end) + 1;
    offset += count;
  }
  return count < 0 ? -1 : offset;
}

// Copies from the offset, which it moves on, to the file's end.
bool CopyRest(int from, int64_t& offset, int to) {
  const CQuietWriter quiet;
  std::vector<char> buffer(kCopySize);
  ssize_t count = 0;
  while ((count = ReadAt(from, buffer, offset)) > 0) {
    const std::string_view chunk(buffer.data(), static_cast<size_t>(count));
    if (quiet.Write(to, chunk) != chunk.size()) return false;
    offset += count;
  }
  return count == 0;
}

bool IsLonger(const std::string& path, int64_t size) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > size;
}

}  // namespace

void LogFile::Trim(int64_t maxSize, int64_t shrinkSize) {
  if (!IsOpen() || !IsLonger(m_path, maxSize)) return;
  const UniqueFd log(open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!log) return;
  const Lease lease(log.get());
  Copy copy(m_path);
  struct stat status = {};
  if (lease.isRefused() || !copy.isMine() || !Names(m_path, log.get()) || fstat(log.get(), &status) != 0) return;

  int64_t offset = NextLine(log.get(), status.st_size - maxSize + shrinkSize);
  const bool isComplete = offset >= 0 && CopyRest(log.get(), offset, copy.fd()) &&
                          fchmod(copy.fd(), status.st_mode & 07777) == 0 && !lease.IsBroken();
  if (isComplete && copy.TakePlaceOf(m_path)) CopyRest(log.get(), offset, copy.fd());
}
