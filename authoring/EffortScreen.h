// Shows on standard error how far a long command is, from its second second on: on a terminal a line that is redrawn,
// elsewhere a line for each step. A thread of its own, as long as the object lives.
#ifndef QUARVEL_AUTHORING_EFFORTSCREEN_H
#define QUARVEL_AUTHORING_EFFORTSCREEN_H

#include <string>
#include <thread>

#include "authoring/Effort.h"

namespace authoring {

class EffortScreen {
 public:
  EffortScreen() : m_thread([this](const std::stop_token& stop) { Show(stop); }) {}
  EffortScreen(const EffortScreen&) = delete;
  EffortScreen& operator=(const EffortScreen&) = delete;

  Effort& effort() { return m_effort; }

 private:
  void Show(const std::stop_token& stop);

  Effort m_effort;
  std::jthread m_thread;  // last, so that it ends first
};

// "Packing: 1200.0 MB of 2200.0 MB, 0:41", or without bytes where they are not counted.
std::string EffortText(const Effort::Step& step, uint64_t seconds);

}  // namespace authoring

#endif
