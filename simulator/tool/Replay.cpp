// A trace made again: the calls that a host made, on simulated pens built as the trace saw them.
#include <fmt/format.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "simulator/PenBench.h"
#include "simulator/tool/Commands.h"
#include "simulator/tool/Player.h"

namespace simtool {
namespace {

namespace fs = std::filesystem;

class WorkFolder {
 public:
  WorkFolder() {
    std::string pattern = (fs::temp_directory_path() / "tessvik-replay-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::invalid_argument(fmt::format("{} cannot be made", pattern));
    m_path = pattern;
  }
  ~WorkFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
  }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;
  const fs::path& path() const { return m_path; }

 private:
  fs::path m_path;
};

ChosenFault ParseFault(const std::string& text) {
  ChosenFault fault;
  const size_t first = text.find(':');
  const size_t second = text.find(':', first == std::string::npos ? first : first + 1);
  try {
    if (second == std::string::npos) throw std::invalid_argument(text);
    fault.function = text.substr(0, first);
    fault.call = std::stoi(text.substr(first + 1, second - first - 1));
    fault.error = std::stoi(text.substr(second + 1));
  } catch (const std::exception&) {
    throw std::invalid_argument(fmt::format("\"{}\" should be FUNCTION:CALL:ERROR, as pcStartObex:1:115", text));
  }
  if (!fault.function.starts_with("pc")) {
    throw std::invalid_argument(fmt::format("there is no pen function \"{}\"", fault.function));
  }
  return fault;
}

std::string NameOf(const SeenPen& pen) {
  return pen.told.empty() ? "a pen that told no id" : pen.told;
}

std::string NameOf(const trace::Recorded& call, const SeenPen* pen) {
  std::string text = fmt::format("call {} {}", call.number, call.function);
  if (pen) text += fmt::format(" for {}", NameOf(*pen));
  return text;
}

void TellPens(const SeenPens& seen) {
  for (const SeenPen& pen : seen.pens()) {
    fmt::print("Built {}: type {}, firmware {}, {} applications.\n", NameOf(pen),
               pen.file.value("type", Json(1)).dump(), pen.file.value("firmware", Json("unknown")).get<std::string>(),
               pen.file["penlets"].size());
  }
}

// What the reader should know before the calls.
void TellGaps(const trace::Recording& recording) {
  if (recording.lost > 0) fmt::print("{} lines of the trace were lost when it was written.\n", recording.lost);
  if (recording.damaged > 0) fmt::print("{} lines of the trace are damaged and left out.\n", recording.damaged);
  for (const trace::Recorded& call : recording.calls) {
    if (!call.hasEnded) fmt::print("{} had not ended and is not made.\n", NameOf(call, nullptr));
  }
}

void Tell(const trace::Recorded& call, const Played& played, const SeenPen* pen) {
  if (!played.difference.empty()) {
    fmt::print("{}: {}.\n", NameOf(call, pen), played.difference);
  } else if (played.isGiven) {
    fmt::print("{} failed with {}; the pen was given that failure.\n", NameOf(call, pen), call.result);
  }
}

void TellJson(const trace::Recorded& call, const Played& played, const SeenPen* pen) {
  const Json line = {
      {"call", call.number},       {"process", call.process},
      {"function", call.function}, {"pen", pen && !pen->told.empty() ? Json(pen->told) : Json()},
      {"recorded", call.result},   {"result", played.result},
      {"given", played.isGiven},   {"difference", played.difference.empty() ? Json() : Json(played.difference)}};
  fmt::print("{}\n", line.dump(-1, ' ', false, Json::error_handler_t::replace));
}

int TellAll(const trace::Recording& recording, const SeenPens& seen, const std::vector<Played>& all, bool json) {
  const trace::Recorded* first = nullptr;
  size_t differences = 0;
  for (const Played& played : all) {
    const trace::Recorded& call = recording.calls[played.call];
    const SeenPen* pen = seen.PenAt(call.pen, played.call);
    json ? TellJson(call, played, pen) : Tell(call, played, pen);
    if (played.difference.empty()) continue;
    if (!first) first = &call;
    ++differences;
  }
  if (!json) {
    fmt::print("{} calls made, {} with another outcome{}.\n", all.size(), differences,
               first ? fmt::format("; the first is {}", NameOf(*first, nullptr)) : "");
  }
  return differences == 0 ? 0 : 1;
}

int ReplayIn(const fs::path& folder, const Arguments& arguments) {
  const trace::Recording recording = trace::ReadRecordingFile(arguments.file);
  SeenPens seen(recording);
  Player player(recording, seen, folder);
  if (!arguments.fault.empty()) player.Choose(ParseFault(arguments.fault));
  if (arguments.strict) player.GiveNone();
  const std::vector<Played> played = player.Play();
  if (!arguments.json) {
    TellGaps(recording);
    TellPens(seen);
  }
  return TellAll(recording, seen, played, arguments.json);
}

}  // namespace

int Replay(const Arguments& arguments) {
  const WorkFolder folder;
  try {
    return ReplayIn(folder.path(), arguments);
  } catch (const Json::exception& error) {
    throw std::invalid_argument(
        fmt::format("the trace {} holds a call that no pen library makes: {}", arguments.file, error.what()));
  }
}

}  // namespace simtool
