#include "Common/log/LogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "Common/QuietWriter.h"
#include "Common/log/LogPath.h"

namespace {

// Opening a pipe without a reader fails at once instead of waiting for one, and so does a file that is being trimmed.
UniqueFd OpenToAppend(const std::string& path) {
  return UniqueFd(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666));
}

bool IsRegular(int fd) {
  struct stat status = {};
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

// Whether what failed may well succeed a little later.
bool IsPassing(int error) {
  return error == EWOULDBLOCK || error == EINTR || error == EMFILE || error == ENFILE || error == ENOMEM;
}

// Takes back what a write left of a line that it had no room for.
void TakeBackCutLine(int fd, std::string_view written) {
  const size_t cut = written.size() - (written.rfind('\n') + 1);
  struct stat status = {};
  if (cut == 0 || fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return;
  const off_t end = lseek(fd, 0, SEEK_CUR);
  if (end != status.st_size) return;  // somebody has written behind it
  if (ftruncate(fd, end - static_cast<off_t>(cut)) != 0) return;
}

}  // namespace

bool LogFile::Open(const std::string& path) {
  Close();
  UniqueFd file = OpenToAppend(path);
  if (!file && errno != EWOULDBLOCK) return false;
  if (file && !IsRegular(file.get())) m_stream = std::move(file);
  m_path = path.starts_with('/') ? path : WorkingFolder() + path;
  return true;
}

void LogFile::Close() {
  m_path.clear();
  m_stream = UniqueFd();
}

bool LogFile::Append(std::string_view lines) {
  if (!IsOpen() || lines.empty()) return true;
  const UniqueFd file = m_stream ? UniqueFd() : OpenToAppend(m_path);
  if (!m_stream && !file) return !IsPassing(errno);
  const int fd = m_stream ? m_stream.get() : file.get();
  const size_t written = CQuietWriter().Write(fd, lines);
  if (written < lines.size()) TakeBackCutLine(fd, lines.substr(0, written));
  return true;
}
