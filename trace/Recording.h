// A trace as it is read back: plain values. Whatever stands in the file, reading it ends with a recording or with one
// sentence about what is wrong; a line that is cut or damaged is left out and counted.
#ifndef QUARVEL_TRACE_RECORDING_H
#define QUARVEL_TRACE_RECORDING_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace trace {

using Json = nlohmann::ordered_json;

// A process that recorded, as it introduced itself.
struct Recorder {
  int64_t process = 0;
  std::string program{};
  std::string library{};
  bool hasSimulatedPens = false;
};

// A progress call. Of a transfer's progress calls a choice is in the trace.
struct Tick {
  int64_t number = 0;  // from 1, in its call
  int64_t time = 0;
  int32_t pen = 0;
  uint64_t total = 0;
  uint64_t done = 0;
  int32_t answer = 0;
};

struct Recorded {
  int64_t number = 0;  // of the call, from 1 in its process
  int64_t process = 0;
  int64_t thread = 0;
  int64_t within = 0;  // the call out of which it was made, 0 for none
  int64_t time = 0;    // microseconds since the epoch
  std::string function{};
  int32_t pen = 0;  // the handle, 0 where the function takes none
  Json in{};        // arguments
  bool hasEnded = false;
  int64_t took = 0;  // microseconds
  int64_t result = 0;
  Json out{};      // answers
  Json summary{};  // of the progress calls, null without any
  std::vector<Tick> ticks{};
};

struct Recording {
  std::vector<Recorder> recorders{};
  std::vector<Recorded> calls{};  // in the order in which they ended, then those that did not
  int64_t lost = 0;               // lines that could not be written
  int64_t damaged = 0;            // lines that cannot be read

  // Whether the calls of this process went to simulated pens.
  bool HasSimulatedPens(int64_t process) const;
};

// Both throw std::invalid_argument for what is no trace, and for one of a newer form.
Recording ReadRecording(std::string_view text);
// A trace, with the older half that stands beside it, or the trace in a report's zip file.
Recording ReadRecordingFile(const std::string& file);

// A text's bytes as they were in memory.
std::string BytesOf(const Json& text);
// The same of a member, "" without one.
std::string TextOf(const Json& object, const char* member);

}  // namespace trace

#endif
