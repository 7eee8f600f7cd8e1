// Runs on several pens at once, each on a thread of its own, as many as the library serves at a time; the others wait
// for a place. Looks after them meanwhile: tells each when the library waits for its pen, and repeats a stop until it
// is heard. For a command that starts all its runs at once, and for a program that starts one whenever a pen is plugged
// in. Any thread may call; signals that the process handles elsewhere must be blocked before it is made.
#ifndef QUARVEL_DESK_RUNPOOL_H
#define QUARVEL_DESK_RUNPOOL_H

#include <condition_variable>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "desk/PenRun.h"

class RunPool {
 public:
  static constexpr size_t kPlaces = kPensServed;

  RunPool();
  // Asks every run to stop and waits for all.
  ~RunPool();
  RunPool(const RunPool&) = delete;
  RunPool& operator=(const RunPool&) = delete;

  // Begins the run, or queues it. Runs begin in the order in which they came.
  void Start(std::shared_ptr<PenRun> run);
  // Every run that is here ends as soon as it can, those that wait without having begun.
  void StopAll();
  // Returns when no run is left.
  void Wait();

 private:
  struct Place {
    std::shared_ptr<PenRun> run;
    std::thread thread;
    bool ended = false;
  };

  void LookAfter();
  void FillPlaces();
  void ClearPlaces(std::unique_lock<std::mutex>& lock);
  std::vector<std::shared_ptr<PenRun>> Running();

  std::mutex m_lock;  // guards what follows; never held while a run or the library is called
  std::condition_variable m_changed;
  std::list<Place> m_places;
  std::deque<std::shared_ptr<PenRun>> m_waiting;
  bool m_ending = false;
  std::thread m_caretaker;
};

#endif
