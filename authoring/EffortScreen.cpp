#include "authoring/EffortScreen.h"

#include <fmt/format.h>
#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>

namespace authoring {

namespace {

std::string MegabytesText(uint64_t bytes) {
  return fmt::format("{}.{} MB", bytes / 1'000'000, bytes / 100'000 % 10);
}

}  // namespace

std::string EffortText(const Effort::Step& step, uint64_t seconds) {
  std::string time = fmt::format("{}:{:02}", seconds / 60, seconds % 60);
  if (step.total == 0) return fmt::format("{}: {}", step.name, time);
  return fmt::format("{}: {} of {}, {}", step.name, MegabytesText(step.done), MegabytesText(step.total), time);
}

void EffortScreen::Show(const std::stop_token& stop) {
  bool terminal = isatty(STDERR_FILENO) != 0;
  std::string told;
  std::mutex lock;
  std::condition_variable_any changed;
  std::unique_lock<std::mutex> held(lock);
  for (uint64_t seconds = 1; !stop.stop_requested(); ++seconds) {
    changed.wait_for(held, stop, std::chrono::seconds(1), [] { return false; });
    Effort::Step step = m_effort.Now();
    if (stop.stop_requested() || seconds < 2 || step.name.empty()) continue;
    if (terminal) {
      fputs(fmt::format("\r{}\x1b[K", EffortText(step, seconds)).c_str(), stderr);
    } else if (step.name != told) {
      fputs((step.name + " ...\n").c_str(), stderr);
    }
    told = step.name;
  }
  if (terminal && !told.empty()) fputs("\r\x1b[K", stderr);
}

}  // namespace authoring
