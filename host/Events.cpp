#include "host/Events.h"

#include <stdio.h>

std::string ToLine(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

Events::Events(bool toStandardOutput, const std::string& file) : m_toStandardOutput(toStandardOutput) {
  if (!file.empty()) m_file.open(file, std::ios::binary);
}

void Events::Write(std::string_view event, const Json& fields) {
  Json whole{{"schema", 1}, {"event", event}};
  whole.update(fields);
  std::string line = ToLine(whole);
  std::lock_guard<std::mutex> guard(m_lock);
  if (m_toStandardOutput) {
    fwrite(line.data(), 1, line.size(), stdout);
    fflush(stdout);
  }
  if (m_file.is_open()) m_file << line << std::flush;
}
