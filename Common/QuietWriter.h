// Writes to files of the library without a signal for the host: beyond the process's file size limit, or into a pipe
// that nobody reads any more, a write fails on this thread instead of ending the process. It lives on the thread that
// writes, which has the two signals blocked as long as it lives.
#ifndef QUARVEL_COMMON_QUIETWRITER_H
#define QUARVEL_COMMON_QUIETWRITER_H

#include <signal.h>

#include <cstddef>
#include <string_view>

class CQuietWriter {
 public:
  CQuietWriter();
  ~CQuietWriter();
  CQuietWriter(const CQuietWriter&) = delete;
  CQuietWriter& operator=(const CQuietWriter&) = delete;

  // Returns the bytes written: fewer than given, with errno set, when the rest could not be.
  size_t Write(int fd, std::string_view bytes) const;

 private:
  void TakeSignal(int signal) const;

  sigset_t m_before;
  sigset_t m_pendingBefore;  // the host's own: they stay
};

#endif
