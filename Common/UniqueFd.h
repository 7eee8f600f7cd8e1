// Owns a file descriptor and closes it. One thread at a time.
#ifndef QUARVEL_COMMON_UNIQUEFD_H
#define QUARVEL_COMMON_UNIQUEFD_H

#include <unistd.h>

#include <utility>

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : m_fd(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
  }
  ~UniqueFd() {
    if (m_fd >= 0) close(m_fd);
  }

  int get() const { return m_fd; }
  int release() { return std::exchange(m_fd, -1); }
  explicit operator bool() const { return m_fd >= 0; }

 private:
  int m_fd = -1;
};

#endif
