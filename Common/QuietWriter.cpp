#include "Common/QuietWriter.h"

#include <time.h>
#include <unistd.h>

#include <cerrno>

CQuietWriter::CQuietWriter() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGXFSZ);
  sigaddset(&signals, SIGPIPE);
  sigpending(&m_pendingBefore);
  pthread_sigmask(SIG_BLOCK, &signals, &m_before);
}

CQuietWriter::~CQuietWriter() {
  pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

size_t CQuietWriter::Write(int fd, std::string_view bytes) const {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = write(fd, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EFBIG) TakeSignal(SIGXFSZ);
    if (count < 0 && errno == EPIPE) TakeSignal(SIGPIPE);
    if (count <= 0) break;
    done += static_cast<size_t>(count);
  }
  return done;
}

// A failed write leaves it pending.
void CQuietWriter::TakeSignal(int signal) const {
  if (sigismember(&m_pendingBefore, signal) == 1) return;
  const int error = errno;
  sigset_t taken;
  sigemptyset(&taken);
  sigaddset(&taken, signal);
  const timespec atOnce{};
  sigtimedwait(&taken, nullptr, &atOnce);
  errno = error;
}
