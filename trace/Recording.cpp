#include "trace/Recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <utility>

namespace trace {
namespace {

constexpr int64_t kForm = 1;  // of the lines that are understood here

int64_t NumberOf(const Json& object, const char* member) {
  const auto found = object.find(member);
  return found != object.end() && found->is_number() ? found->get<int64_t>() : 0;
}

uint64_t SizeOf(const Json& object, const char* member) {
  return static_cast<uint64_t>(NumberOf(object, member));
}

Json ObjectOf(const Json& object, const char* member) {
  const auto found = object.find(member);
  return found != object.end() && found->is_object() ? *found : Json::object();
}

class Reader {
 public:
  void Take(std::string_view text);
  Recording Finish();

 private:
  using Key = std::pair<int64_t, int64_t>;  // process, number

  void Introduce(const Json& line);
  void Begin(const Json& line);
  void End(const Json& line);
  void AddTick(const Json& line);

  Recording m_recording{};
  bool m_isTrace = false;
  std::map<Key, Recorded> m_open{};
};

void Reader::Take(std::string_view text) {
  const Json line = Json::parse(text, nullptr, false);
  if (!line.is_object()) {
    ++m_recording.damaged;
  } else if (line.contains("trace")) {
    Introduce(line);
  } else if (line.contains("begin")) {
    Begin(line);
  } else if (line.contains("end")) {
    End(line);
  } else if (line.contains("tick")) {
    AddTick(line);
  } else {
    m_recording.lost += NumberOf(line, "lost");
  }
}

void Reader::Introduce(const Json& line) {
  const int64_t form = NumberOf(line, "trace");
  if (form != kForm) {
    throw std::invalid_argument(fmt::format("the trace has the form {}, of which only {} is known here", form, kForm));
  }
  m_isTrace = true;
  const Json simulator = line.value("simulator", Json(false));
  m_recording.recorders.push_back(
      {NumberOf(line, "process"), TextOf(line, "program"), TextOf(line, "library"), simulator == Json(true)});
}

void Reader::Begin(const Json& line) {
  Recorded call;
  call.number = NumberOf(line, "begin");
  call.process = NumberOf(line, "process");
  call.thread = NumberOf(line, "thread");
  call.within = NumberOf(line, "within");
  call.time = NumberOf(line, "time");
  call.function = TextOf(line, "function");
  call.pen = static_cast<int32_t>(NumberOf(line, "pen"));
  call.in = ObjectOf(line, "in");
  m_isTrace = true;
  const Key key{call.process, call.number};
  m_open.insert_or_assign(key, std::move(call));
}

void Reader::End(const Json& line) {
  const auto found = m_open.find({NumberOf(line, "process"), NumberOf(line, "end")});
  if (found == m_open.end()) return;  // it began before the trace does
  Recorded call = std::move(found->second);
  m_open.erase(found);
  call.hasEnded = true;
  call.took = std::max<int64_t>(NumberOf(line, "time") - call.time, 0);
  call.result = NumberOf(line, "result");
  call.out = ObjectOf(line, "out");
  call.summary = line.value("ticks", Json());
  m_recording.calls.push_back(std::move(call));
}

void Reader::AddTick(const Json& line) {
  const auto found = m_open.find({NumberOf(line, "process"), NumberOf(line, "call")});
  if (found == m_open.end()) return;
  found->second.ticks.push_back({NumberOf(line, "tick"), NumberOf(line, "time"),
                                 static_cast<int32_t>(NumberOf(line, "pen")), SizeOf(line, "total"),
                                 SizeOf(line, "done"), static_cast<int32_t>(NumberOf(line, "answer"))});
}

Recording Reader::Finish() {
  if (!m_isTrace) throw std::invalid_argument("there is no call of a pen library in it");
  for (auto& [key, call] : m_open) m_recording.calls.push_back(std::move(call));
  return std::move(m_recording);
}

}  // namespace

bool Recording::HasSimulatedPens(int64_t process) const {
  return std::any_of(recorders.begin(), recorders.end(), [process](const Recorder& recorder) {
    return recorder.process == process && recorder.hasSimulatedPens;
  });
}

Recording ReadRecording(std::string_view text) {
  Reader reader;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    if (end == std::string_view::npos) break;  // cut off by a kill
    if (end > 0) reader.Take(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  return reader.Finish();
}

std::string BytesOf(const Json& text) {
  if (!text.is_string()) return "";
  const auto& encoded = text.get_ref<const std::string&>();
  std::string bytes;
  for (size_t i = 0; i < encoded.size(); ++i) {
    const auto c = static_cast<unsigned char>(encoded[i]);
    // Two bytes in UTF-8 are what the trace has for one from 0x80.
    const bool isPair = (c & 0xfc) == 0xc0 && i + 1 < encoded.size();
    bytes += isPair ? static_cast<char>((c & 3) << 6 | (encoded[++i] & 0x3f)) : static_cast<char>(c);
  }
  return bytes;
}

std::string TextOf(const Json& object, const char* member) {
  const auto found = object.find(member);
  return found == object.end() ? std::string() : BytesOf(*found);
}

}  // namespace trace
