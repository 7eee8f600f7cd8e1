// Ctrl-C, a request to terminate and a hang-up while pens are at work. A signal that is ignored when the program
// starts, as under nohup, stays ignored. Signals are taken by a thread of their own, so that what they lead to is
// ordinary code. Made in the main thread before any other thread starts; at most one at a time.
#ifndef QUARVEL_HOST_INTERRUPTS_H
#define QUARVEL_HOST_INTERRUPTS_H

#include <signal.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include "desk/ResultTexts.h"

class Interrupts {
 public:
  // Called on the signal thread with 1 for the first interrupt, 2 for the second. The third ends the process.
  using Handler = std::function<void(int count)>;

  Interrupts();
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  // From now on interrupts are counted and given to `handler`; before, when no pen is touched yet, the first one ends
  // the process.
  void Attend(Handler handler);
  // Called on the signal thread right before an interrupt ends the process.
  using ForcedEnd = std::function<void(ExitStatus status, const char* words)>;
  void BeforeForcedEnd(ForcedEnd last);
  bool Requested() const { return m_count > 0; }

 private:
  void Serve();
  void OnSignal();
  [[noreturn]] void EndProcess(ExitStatus status, const char* words);

  sigset_t m_signals{};
  sigset_t m_before{};
  std::atomic<int> m_count{0};
  std::atomic<bool> m_ending{false};
  std::mutex m_lock;  // guards what follows
  Handler m_handler;
  ForcedEnd m_last;
  std::thread m_thread;
};

#endif
