// What the library logs during a test, read from the log's file.
#ifndef QUARVEL_TESTS_SUPPORT_TESTLOG_H
#define QUARVEL_TESTS_SUPPORT_TESTLOG_H

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Common/Logger_mac.h"
#include "tests/support/TempFolder.h"

class TestLog {
 public:
  explicit TestLog(CLogger& logger = g_Logger) : m_logger(logger) {
    m_logger.Close();  // a file that is open stays in use across Init
    m_logger.Init(0, (m_folder / "log").c_str(), nullptr, 1 << 20, 0, 3'600'000, 1024);
  }
  ~TestLog() {
    m_logger.Init(CLogger::kNoFile, nullptr, nullptr, 0, 0, 3'600'000, 1024);
    m_logger.Close();
  }
  TestLog(const TestLog&) = delete;
  TestLog& operator=(const TestLog&) = delete;

  // The lines so far, each as "tag: message".
  std::vector<std::string> Lines() {
    m_logger.Flush();
    std::vector<std::string> lines;
    std::istringstream text(ReadWholeFile(m_folder / "log"));
    for (std::string line; std::getline(text, line);) {
      const std::string tag = line.substr(32, 20);
      lines.push_back(tag.substr(0, tag.find_last_not_of(' ') + 1) + ": " + line.substr(54));
    }
    return lines;
  }

  // The threads that wrote them, as the lines name them.
  std::set<std::string> Threads() {
    m_logger.Flush();
    std::set<std::string> threads;
    std::istringstream text(ReadWholeFile(m_folder / "log"));
    for (std::string line; std::getline(text, line);) threads.insert(line.substr(21, 8));
    return threads;
  }

 private:
  TempFolder m_folder;
  CLogger& m_logger;
};

using Lines = std::vector<std::string>;

#endif
