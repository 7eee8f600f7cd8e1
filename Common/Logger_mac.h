// The library's text log: one line per event or error, with date, thread and tag, to a file and optionally to the
// console. Any thread may call anything; a lock of the logger's own serialises the file work. A logger is silent until
// Init. The file is flushed every flush interval while lines arrive; once it has been idle for one, it is trimmed to
// its bounds and closed, and the next line opens it again.
#ifndef QUARVEL_COMMON_LOGGER_MAC_H
#define QUARVEL_COMMON_LOGGER_MAC_H

#include <cstdint>

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

  CLogger();
  CLogger(int flags, const char* fileName, const char* folder, unsigned long maxSize, unsigned long shrinkSize,
          unsigned long flushInterval, unsigned long messageLimit);
  virtual ~CLogger();
  CLogger(const CLogger&) = delete;
  CLogger& operator=(const CLogger&) = delete;

  void Init(int flags, const char* fileName, const char* folder, unsigned long maxSize, unsigned long shrinkSize,
            unsigned long flushInterval, unsigned long messageLimit);

  // One event line. `tag` is the name of the function that writes it; a null format writes no message.
  void LogEvent(const char* tag, const char* format, ...) __attribute__((format(printf, 3, 4)));
  void LogEventText(const char* tag, const char* text);
  // One error line: the message, then the code as " (Error 0x%08x)".
  void LogError(const char* tag, int errorCode, const char* format, ...) __attribute__((format(printf, 4, 5)));
  void LogErrorText(const char* tag, int errorCode, const char* text);
};

// The one logger through which the whole library logs. It is constructed before and destroyed after everything that
// logs.
extern CLogger g_Logger;

#endif
