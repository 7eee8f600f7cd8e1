// The lock around the library's shared tables: recursive, so a thread may take it again and must release it as often.
// It meets std::lock_guard's needs (lock, unlock) besides its own names.
#ifndef QUARVEL_COMMON_LOCKER_H
#define QUARVEL_COMMON_LOCKER_H

#include <mutex>

class CLocker {
 public:
  // Waits without bound; returns 0, the platform's status for success.
  int Lock() {
    m_mutex.lock();
    return 0;
  }
  int Unlock() {
    m_mutex.unlock();
    return 0;
  }
  void lock() { m_mutex.lock(); }
  void unlock() { m_mutex.unlock(); }

 private:
  std::recursive_mutex m_mutex;
};

#endif
