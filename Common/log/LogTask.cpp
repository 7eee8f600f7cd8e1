// The task that flushes a log while lines arrive, and trims and closes its file once they stop; and what keeps a logger
// usable in both processes after a fork.
#include <cerrno>
#include <csignal>
#include <ctime>
#include <mutex>
#include <new>

#include "Common/Logger_mac.h"

namespace {

// Every logger of the process, linked through m_next. The lock is taken before a logger's own.
constinit std::mutex g_registryLock;
constinit CLogger* g_firstLogger = nullptr;

timespec After(uint32_t milliseconds) {
  constexpr long kNanosecondsOfOne = 1'000'000;
  constexpr long kNanosecondsOfSecond = 1'000'000'000;
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  time.tv_sec += static_cast<time_t>(milliseconds / 1000);
  time.tv_nsec += static_cast<long>(milliseconds % 1000) * kNanosecondsOfOne;
  if (time.tv_nsec >= kNanosecondsOfSecond) {
    time.tv_nsec -= kNanosecondsOfSecond;
    ++time.tv_sec;
  }
  return time;
}

// The interval is timed by a clock that nobody sets.
void MakeCondition(pthread_cond_t* condition) {
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_init(condition, &attributes);
  pthread_condattr_destroy(&attributes);
}

void MakeRecursiveLock(pthread_mutex_t* lock) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(lock, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

}  // namespace

// The task takes no signals: those are for the host's threads. Without a task, lines are written one by one.
void CLogger::StartTask() {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  m_hasTask = pthread_create(&m_task, nullptr, FlushShrinkThread, this) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void CLogger::StopTask() {
  LockLog();
  m_stop = true;
  pthread_cond_signal(&m_wake);
  UnLockLog();
  if (m_hasTask) pthread_join(m_task, nullptr);
  m_hasTask = false;
}

void* CLogger::FlushShrinkThread(void* logger) {
  static_cast<CLogger*>(logger)->RunTask();
  return nullptr;
}

void CLogger::RunTask() {
  LockLog();
  uint32_t seenLines = 0;
  while (!m_stop) {
    const timespec end = After(m_flushInterval > 0 ? m_flushInterval : 1);
    int status = 0;
    while (!m_stop && status == 0) status = pthread_cond_timedwait(&m_wake, &m_lock, &end);
    if (status != 0 && status != ETIMEDOUT) break;
    if (!m_stop) WorkOfOneInterval(seenLines);
  }
  UnLockLog();
}

// What memory does not suffice for is tried again after the next interval.
void CLogger::WorkOfOneInterval(uint32_t& seenLines) noexcept try {
  if (m_lineCounter != seenLines || !m_pending.empty()) {
    Flush();
    seenLines = m_lineCounter;
  } else if (m_file.IsOpen()) {
    ShrinkLog();
    Close();
  }
} catch (const std::bad_alloc&) {
}

void CLogger::EnterRegistry() {
  MakeRecursiveLock(&m_lock);
  MakeCondition(&m_wake);
  const std::lock_guard registry(g_registryLock);
  static const int handlers = pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
  static_cast<void>(handlers);
  m_next = g_firstLogger;
  g_firstLogger = this;
}

void CLogger::LeaveRegistry() {
  const std::lock_guard registry(g_registryLock);
  CLogger** link = &g_firstLogger;
  while (*link != this) link = &(*link)->m_next;
  *link = m_next;
}

// No logger is in the middle of anything while the process is copied, and what waits is written by one of the two.
void CLogger::BeforeFork() {
  g_registryLock.lock();
  for (CLogger* logger = g_firstLogger; logger; logger = logger->m_next) {
    logger->LockLog();
    logger->WritePending();
  }
}

void CLogger::AfterForkInParent() {
  for (CLogger* logger = g_firstLogger; logger; logger = logger->m_next) logger->UnLockLog();
  g_registryLock.unlock();
}

void CLogger::AfterForkInChild() {
  for (CLogger* logger = g_firstLogger; logger; logger = logger->m_next) logger->ResetInChild();
  g_registryLock.unlock();
}

// The task did not come along: the child writes line by line until it calls Init. What still waits is the parent's.
void CLogger::ResetInChild() {
  m_hasTask = false;
  m_file.Close();
  m_pending.clear();
  UnLockLog();
  MakeRecursiveLock(&m_lock);  // the thread that took it has another number here and cannot give it back
  MakeCondition(&m_wake);
}
