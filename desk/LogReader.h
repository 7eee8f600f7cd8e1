// Reads back what the library wrote into its log. The log belongs to the process, so that the lines of several pens
// stand mixed; each line names its thread, and each pen has a thread of its own.
//
// A line: "[date] [thread] [tag padded to 20] message", its date 17 characters, its thread 8 hexadecimal digits.
#ifndef QUARVEL_DESK_LOGREADER_H
#define QUARVEL_DESK_LOGREADER_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct LogLine {
  std::string thread;
  std::string tag;
  std::string message;
};

// The calling thread as the log names it.
std::string LogThreadName();
// Nothing for a text that is not a log's line.
std::optional<LogLine> ParseLogLine(std::string_view line);
// The line that tells most about a failure: the last one that no exported function wrote and that is no skip.
std::string DetailOf(const std::vector<LogLine>& lines);

// Switches the library's log on, into `file`, and gives its reader. Throws a Failure when the file cannot be written.
class LogReader;
LogReader OpenLog(const std::string& file);

class LogReader {
 public:
  // Made before the first call; what the file holds by then is of earlier runs.
  explicit LogReader(std::string file);

  // The lines that `thread` wrote within its call of the exported `function`, which ends with a line that begins with
  // `lastLine`. The library flushes its log once a second; waits as long as that takes, and gives what there is when
  // the last line does not come.
  std::vector<LogLine> LinesOfCall(const std::string& thread, std::string_view function,
                                   std::string_view lastLine) const;
  const std::string& File() const { return m_file; }

 private:
  std::vector<LogLine> LinesOf(const std::string& thread) const;

  std::string m_file;
  uint64_t m_begin;
};

#endif
