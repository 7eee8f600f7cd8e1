// What happens in a run, as JSON Lines: one object a line, each with "schema" and "event". They go to standard output
// when the user asked for JSON, and always to the run's folder, for a later report.
//
// Schema 1: fields are only ever added. Every event of one pen has "pen".
//   run      "state" started, "command", "pen", "handle", "bundle", "group", "time", "log"
//   package  "pen", "state" transferring|finished, "file", "name", "guid", "version", "group", "fileType", "done",
//            "total" (bytes of this package), "runDone", "runTotal" (of all), "rate" (bytes a second), "secondsLeft"
//   error    "pen", "code", "meaning", "remedy", "file", "version", "decision" skip|stop
//   wait     "pen", "for" leave|return, "seconds", "limit"
//   result   "pen" (null when no pen is involved), "code" (null when the library was not called), "class", "exit",
//            "meaning", "remedy", "detail" (the log's own words), "packages", "time"
#ifndef QUARVEL_HOST_EVENTS_H
#define QUARVEL_HOST_EVENTS_H

#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

using Json = nlohmann::ordered_json;

// One line, whatever bytes the texts hold.
std::string ToLine(const Json& value);

// Any thread may write.
class Events {
 public:
  // `file` is the copy that is kept; it may be empty for none.
  Events(bool toStandardOutput, const std::string& file);

  // Adds "schema" and "event" in front of the fields and writes the line.
  void Write(std::string_view event, const Json& fields);

 private:
  std::mutex m_lock;
  bool m_toStandardOutput;
  std::ofstream m_file;
};

#endif
