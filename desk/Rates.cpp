#include "desk/Rates.h"

#include <nlohmann/json.hpp>
#include <string>

#include "desk/Json.h"

void Rates::AddEvents(std::istream& events) {
  constexpr size_t longest = 4 << 20;
  size_t read = 0;
  for (std::string line; read < longest && std::getline(events, line); read += line.size() + 1) {
    Json event = Json::parse(line, nullptr, false);
    if (!event.is_object()) continue;
    std::string kind = event.value("event", Json()).is_string() ? event["event"].get<std::string>() : "";
    auto number = [&event](const char* name) {
      return event.contains(name) && event[name].is_number() ? event[name].get<double>() : 0.0;
    };
    bool finished = kind == "package" && event.contains("state") && event["state"] == "finished";
    if (finished && number("rate") >= 1) {
      ++m_transfers;
      m_bytes += number("total");
      m_seconds += number("total") / number("rate");
      if (event.contains("fileType") && event["fileType"] == "Firmware") ++m_downloads;
    }
    if (kind == "wait" && number("seconds") >= 1) m_waited += 1;
  }
}

std::optional<uint64_t> Rates::SecondsFor(uint64_t bytes, bool firmware) const {
  if (m_seconds <= 0 || m_bytes <= 0) return std::nullopt;
  double seconds = static_cast<double>(bytes) * m_seconds / m_bytes;
  if (firmware && m_downloads > 0) seconds += m_waited / m_downloads;
  return static_cast<uint64_t>(seconds + 0.5);
}
