// The library's text log: one line per event or error, with date, thread and tag, to a file and optionally to the
// console. Any thread may call anything; a recursive lock of the logger's own serialises the file work. A logger is
// silent until Init. Lines gather in memory and are written whole, every flush interval and whenever 64 KiB are
// waiting; once the log has been idle for one interval, the file is trimmed to its bounds and closed, and the next line
// opens it again. No call waits for another process: lines that come while one trims the file wait in memory, 1 MiB of
// them at most. Nothing is ever thrown, errno stays as it was, and a line that cannot be written is dropped.
#ifndef QUARVEL_COMMON_LOGGER_MAC_H
#define QUARVEL_COMMON_LOGGER_MAC_H

#include <pthread.h>

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

#include "Common/log/LogFile.h"

class CLogger {
 public:
  // Flags of Init.
  enum Flags : int {
    kNoFile = 1,           // write no file
    kDocumentsFolder = 2,  // place the file in the user's documents folder
    kUserFolder = 4,       // place it in the documents folder (with kDocumentsFolder) or the applications folder
    kEventsToStdout = 16,
    kEventsToStderr = 32,
    kErrorsToStdout = 64,
    kErrorsToStderr = 128,
  };
  // Bytes of a date text, with the NUL.
  static constexpr int kDateSize = 18;

  CLogger();
  CLogger(int flags, const char* fileName, const char* folder, unsigned long maxSize, unsigned long shrinkSize,
          unsigned long flushInterval, unsigned long messageLimit);
  // Writes what waits, closes the file and ends the background task.
  virtual ~CLogger();
  CLogger(const CLogger&) = delete;
  CLogger& operator=(const CLogger&) = delete;

  // Says where lines go from now on; may be called again at any time. A null `fileName` is "Tessvik.log", without any
  // folder the file is in the working directory. `maxSize` and `shrinkSize` are bytes: beyond the first the file is
  // trimmed, to the first less the second. `flushInterval` is milliseconds. Messages have less than `messageLimit`
  // bytes. A file that is open stays in use until it has been idle.
  // False when memory does not suffice; then all stays as it was.
  bool Init(int flags, const char* fileName, const char* folder, unsigned long maxSize, unsigned long shrinkSize,
            unsigned long flushInterval, unsigned long messageLimit) noexcept;

  // One event line. `tag` is the name of the function that writes it; a null format writes no message.
  void LogEvent(const char* tag, const char* format, ...) __attribute__((format(printf, 3, 4)));
  void LogEventText(const char* tag, const char* text);
  // One error line: the message, then the code as " (Error 0x%08x)".
  void LogError(const char* tag, int errorCode, const char* format, ...) __attribute__((format(printf, 4, 5)));
  void LogErrorText(const char* tag, int errorCode, const char* text);

  // Opens the file for appending; true only when this call opened it. A failure is told on standard output.
  bool Open();
  // Gives lines that wait for another process a second, and drops them then.
  void Close();
  void Flush();
  // Trims a file that is longer than the maximum size to whole lines, its newest.
  void ShrinkLog();
  // Let a caller keep several lines together.
  void LockLog();
  void UnLockLog();
  // Writes the head of a line alone; the caller holds the lock until the line is complete.
  void PrintLineHead(const char* tag, bool isError);

  // The date text "0126MMDD|hh:mm:ss" of a year since 1900 and a month from 1; `out` has kDateSize bytes.
  static void GenStringDate(uint16_t year, uint16_t month, uint16_t day, uint16_t hour, uint16_t minute,
                            uint16_t second, char* out);
  // Removes blanks at the end, blanks only.
  static void RTrim(char* text);
  static void ReplaceChar(char* text, char from, char to);

 private:
  enum Kind : int { kEvent = 1, kError = 2 };
  class Guard;

  bool Wants(Kind kind) const { return (m_wanted.load(std::memory_order_relaxed) & kind) != 0; }
  int EchoBits(bool isError) const { return (m_flags >> (isError ? 6 : 4)) & 3; }
  bool WritesFile() const { return m_initialised && (m_flags & kNoFile) == 0; }

  void FormatLine(const char* tag, const int* errorCode, const char* format, va_list arguments);
  void WriteText(const char* tag, const int* errorCode, const char* text);
  void WriteLine(const char* tag, const int* errorCode, std::string_view message) noexcept;
  void AppendHead(const char* tag);
  void Finish(size_t start, bool isError);
  void WritePending();

  void StartTask();
  void StopTask();
  static void* FlushShrinkThread(void* logger);
  void RunTask();
  void WorkOfOneInterval(uint32_t& seenLines) noexcept;

  void EnterRegistry();
  void LeaveRegistry();
  void ResetInChild();
  static void BeforeFork();
  static void AfterForkInParent();
  static void AfterForkInChild();

  pthread_t m_task = {};
  bool m_hasTask = false;
  bool m_stop = false;
  pthread_cond_t m_wake;
  LogFile m_file;
  std::string m_path;
  std::string m_pending;  // whole lines that wait to be written
  int32_t m_flags = 0;
  pthread_mutex_t m_lock;
  uint32_t m_lineCounter = 0;
  bool m_initialised = false;
  uint32_t m_maxSize = 1048576;
  uint32_t m_shrinkSize = 256000;
  uint32_t m_flushInterval = 1000;
  std::atomic<uint32_t> m_messageLimit = 1024;
  std::atomic<int> m_wanted = 0;  // Kinds that go anywhere: all that a silent logger looks at
  time_t m_dateSecond = -1;       // the second that m_date names
  char m_date[kDateSize] = {};
  CLogger* m_next = nullptr;  // the next logger of the process
};

// The one logger through which the whole library logs. It is constructed before and destroyed after everything that
// logs.
extern CLogger g_Logger;

#endif
