// Log lines of one piece of work that a worker's thread does: kept until the caller's thread logs them, so that a run
// can be followed by the thread and the lines stand in the order of the work, whichever thread was faster.
#ifndef QUARVEL_INSTALLER_BUNDLE_DEFERREDLOG_H
#define QUARVEL_INSTALLER_BUNDLE_DEFERREDLOG_H

#include <string>
#include <utility>
#include <vector>

#include "Common/Logger_mac.h"

class DeferredLog {
 public:
  void LogEventText(const char* tag, std::string text) { m_lines.emplace_back(tag, std::move(text)); }

  void WriteTo(CLogger& logger) const {
    for (const auto& [tag, text] : m_lines) logger.LogEventText(tag, text.c_str());
  }

 private:
  std::vector<std::pair<const char*, std::string>> m_lines;
};

#endif
