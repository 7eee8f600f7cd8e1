#include "Common/Logger_mac.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <thread>

#include "Common/log/LogPath.h"

// Before the default priority, so that every other object of the library can log from its constructor to its
// destructor.
[[gnu::init_priority(200)]] CLogger g_Logger;

namespace {

// What waits in memory at most, a line of any length apart.
constexpr size_t kPendingSize = 65536;

// What waits at most while the file cannot be had for a moment, and how often closing tries to have it.
constexpr size_t kMostPending = 1 << 20;
constexpr int kCloseTries = 1000;
constexpr std::chrono::milliseconds kClosePause{1};

// Messages up to this size are formatted on the stack.
constexpr size_t kStackMessage = 2048;

constexpr size_t kErrorSuffixSize = 20;

// Room for the head, the suffix and the line feed.
constexpr size_t kAroundMessage = 80;

uint32_t Limit(unsigned long value) {
  return static_cast<uint32_t>(std::min<unsigned long>(value, std::numeric_limits<uint32_t>::max()));
}

// Logging tells its caller nothing, not by errno either.
class KeepErrno {
 public:
  KeepErrno() : m_saved(errno) {}
  ~KeepErrno() { errno = m_saved; }
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;

 private:
  int m_saved;
};

// What of `length` formatted characters is in a buffer of `size` bytes; a failed formatting leaves nothing.
std::string_view Formatted(const char* buffer, size_t size, int length) {
  if (length < 0 || size == 0) return {};
  return {buffer, std::min(static_cast<size_t>(length), size - 1)};
}

}  // namespace

// Takes the logger's lock for a block.
class CLogger::Guard {
 public:
  explicit Guard(CLogger& logger) : m_logger(logger) { m_logger.LockLog(); }
  ~Guard() { m_logger.UnLockLog(); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  CLogger& m_logger;
};

CLogger::CLogger() {
  EnterRegistry();
}

CLogger::CLogger(int flags, const char* fileName, const char* folder, unsigned long maxSize, unsigned long shrinkSize,
                 unsigned long flushInterval, unsigned long messageLimit)
    : CLogger() {
  Init(flags, fileName, folder, maxSize, shrinkSize, flushInterval, messageLimit);
}

CLogger::~CLogger() {
  LeaveRegistry();
  {
    const Guard guard(*this);
    m_wanted = 0;
    m_flags = kNoFile;
    Close();
  }
  StopTask();
  pthread_cond_destroy(&m_wake);
  pthread_mutex_destroy(&m_lock);
}

bool CLogger::Init(int flags, const char* fileName, const char* folder, unsigned long maxSize, unsigned long shrinkSize,
                   unsigned long flushInterval, unsigned long messageLimit) noexcept try {
  const Guard guard(*this);
  if ((flags & kNoFile) == 0) m_path = ResolveLogPath(flags, fileName, folder);
  // From here on nothing needs memory.
  m_flags = flags;
  m_maxSize = Limit(maxSize);
  m_shrinkSize = Limit(shrinkSize);
  m_flushInterval = Limit(flushInterval);
  m_messageLimit = Limit(messageLimit);
  m_initialised = true;
  if (WritesFile() && !m_hasTask) StartTask();
  const bool events = WritesFile() || EchoBits(false) != 0;
  const bool errors = WritesFile() || EchoBits(true) != 0;
  m_wanted = (events ? kEvent : 0) | (errors ? kError : 0);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

void CLogger::LogEvent(const char* tag, const char* format, ...) {
  if (!Wants(kEvent)) return;
  va_list arguments;
  va_start(arguments, format);
  FormatLine(tag, nullptr, format, arguments);
  va_end(arguments);
}

void CLogger::LogEventText(const char* tag, const char* text) {
  if (Wants(kEvent)) WriteText(tag, nullptr, text);
}

void CLogger::LogError(const char* tag, int errorCode, const char* format, ...) {
  if (!Wants(kError)) return;
  va_list arguments;
  va_start(arguments, format);
  FormatLine(tag, &errorCode, format, arguments);
  va_end(arguments);
}

void CLogger::LogErrorText(const char* tag, int errorCode, const char* text) {
  if (Wants(kError)) WriteText(tag, &errorCode, text);
}

// Formats before the lock is taken: threads wait for each other only while a finished line is copied.
void CLogger::FormatLine(const char* tag, const int* errorCode, const char* format, va_list arguments) {
  const KeepErrno keep;
  const size_t limit = m_messageLimit;
  std::array<char, kStackMessage> local;
  std::unique_ptr<char[]> large;
  if (limit > local.size()) large.reset(new (std::nothrow) char[limit]);
  char* const buffer = large ? large.get() : local.data();
  const size_t size = large ? limit : std::min(limit, local.size());
  const int length = format ? vsnprintf(buffer, size, format, arguments) : 0;
  WriteLine(tag, errorCode, Formatted(buffer, size, length));
}

void CLogger::WriteText(const char* tag, const int* errorCode, const char* text) {
  const KeepErrno keep;
  const size_t limit = m_messageLimit;
  const size_t length = text && limit > 0 ? strnlen(text, limit - 1) : 0;
  WriteLine(tag, errorCode, {text, length});
}

// A line for which there is no memory is dropped, as one for which there is no file.
void CLogger::WriteLine(const char* tag, const int* errorCode, std::string_view message) noexcept try {
  const Guard guard(*this);
  if (!m_file.IsOpen()) Open();
  if (!m_file.IsOpen()) return;
  const size_t start = m_pending.size();
  m_pending.reserve(start + message.size() + kAroundMessage);  // a line is added whole or not at all
  AppendHead(tag);
  m_pending += message;
  if (errorCode) {
    char suffix[kErrorSuffixSize];
    const size_t size = std::min<size_t>(sizeof suffix, m_messageLimit);
    m_pending += Formatted(suffix, size, snprintf(suffix, size, " (Error 0x%08x)", static_cast<unsigned>(*errorCode)));
  }
  m_pending += '\n';
  Finish(start, errorCode != nullptr);
  ++m_lineCounter;
} catch (...) {
}

// Echoes what stands in the buffer from `start` on, then leaves it there for the file or, without one, takes it out.
// Without a task to flush it, it is written at once.
void CLogger::Finish(size_t start, bool isError) {
  const int echo = EchoBits(isError);
  const char* const text = m_pending.data() + start;
  if (echo & 1) fwrite(text, 1, m_pending.size() - start, stdout);
  if (echo & 2) fwrite(text, 1, m_pending.size() - start, stderr);
  if (!WritesFile()) m_pending.resize(start);
  if (!m_hasTask || m_pending.size() >= kPendingSize) WritePending();
}

void CLogger::PrintLineHead(const char* tag, bool isError) {
  const KeepErrno keep;
  const Guard guard(*this);
  if (!m_file.IsOpen()) return;
  const size_t start = m_pending.size();
  AppendHead(tag);
  Finish(start, isError);
}

bool CLogger::Open() {
  const Guard guard(*this);
  if (m_file.IsOpen() || !WritesFile()) return false;
  if (m_file.Open(m_path)) return true;
  printf("%s: Error opening log file \"%s\". Err=%d\n", "Open", m_path.c_str(), errno);
  return false;
}

void CLogger::Close() {
  const Guard guard(*this);
  WritePending();
  for (int i = 0; i < kCloseTries && !m_pending.empty(); ++i) {
    std::this_thread::sleep_for(kClosePause);
    WritePending();
  }
  m_file.Close();
  std::string().swap(m_pending);
}

void CLogger::Flush() {
  const Guard guard(*this);
  WritePending();
}

void CLogger::WritePending() {
  if (m_file.Append(m_pending) || m_pending.size() >= kMostPending) m_pending.clear();
}

void CLogger::ShrinkLog() {
  const Guard guard(*this);
  if (!m_file.IsOpen() && !Open()) return;
  WritePending();
  m_file.Trim(m_maxSize, m_shrinkSize);
}

void CLogger::LockLog() {
  pthread_mutex_lock(&m_lock);
}

void CLogger::UnLockLog() {
  pthread_mutex_unlock(&m_lock);
}
