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
// What the log says of a failure: its cause and, where that is another line, what it led to. Empty when no line tells.
std::string DetailOf(const std::vector<LogLine>& lines);

// The cause in words for a person, of a detail that needs them; else empty.
std::string_view CauseOf(std::string_view detail);

// What one call of the library wrote.
struct CallLines {
  std::vector<LogLine> lines;
  bool whole = false;  // all of it is there; otherwise nothing follows from a line that is missing
};

// Switches the library's log on, into `file`, and gives its reader. Throws a Failure when the file cannot be written.
class LogReader;
LogReader OpenLog(const std::string& file);

class LogReader {
 public:
  // Made before the first call; what the file holds by then is of earlier runs.
  explicit LogReader(std::string file);

  // The lines that `thread` wrote within its call of the exported `function`, which ends with a line that begins with
  // `lastLine`. The library flushes its log once a second; waits as long as that takes, and gives what there is when
  // the last line does not come. A log that is no regular file is not read, and of any other 32 MiB at most.
  CallLines LinesOfCall(const std::string& thread, std::string_view function, std::string_view lastLine,
                        uint64_t since = 0) const;
  // Where the log ends now, for a call that begins: threads' names come again, so older lines must not count.
  uint64_t Mark() const;
  // Where it ended when this reader was made.
  uint64_t Begin() const { return m_begin; }
  const std::string& File() const { return m_file; }

 private:
  std::vector<LogLine> LinesOf(const std::string& thread, uint64_t since) const;

  std::string m_file;
  uint64_t m_begin;
};

#endif
