#include "desk/RunPool.h"

#include <algorithm>

#include "desk/Failure.h"

namespace {

// A bus that cannot be looked at tells nothing of waits.
void Poll(const std::vector<std::shared_ptr<PenRun>>& runs) {
  try {
    std::vector<int32_t> handles = PenHandles();
    for (const auto& run : runs) run->Poll(handles);
  } catch (const Failure&) {
  }
}

}  // namespace

RunPool::RunPool() : m_caretaker(&RunPool::LookAfter, this) {}

RunPool::~RunPool() {
  StopAll();
  Wait();
  {
    std::lock_guard<std::mutex> guard(m_lock);
    m_ending = true;
  }
  m_changed.notify_all();
  m_caretaker.join();
}

void RunPool::Start(std::shared_ptr<PenRun> run) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_waiting.push_back(std::move(run));
  FillPlaces();
}

void RunPool::StopAll() {
  std::vector<std::shared_ptr<PenRun>> runs;
  {
    std::lock_guard<std::mutex> guard(m_lock);
    for (const Place& place : m_places) runs.push_back(place.run);
    runs.insert(runs.end(), m_waiting.begin(), m_waiting.end());
  }
  for (const auto& run : runs) run->RequestStop();
}

void RunPool::Wait() {
  std::unique_lock<std::mutex> lock(m_lock);
  m_changed.wait(lock, [this] { return m_places.empty() && m_waiting.empty(); });
}

// Under the lock.
void RunPool::FillPlaces() {
  while (!m_waiting.empty() && m_places.size() < kPlaces) {
    m_places.push_back({std::move(m_waiting.front()), {}, false});
    m_waiting.pop_front();
    Place& place = m_places.back();
    place.thread = std::thread([this, &place] {
      place.run->Execute();
      std::lock_guard<std::mutex> guard(m_lock);
      place.ended = true;
      m_changed.notify_all();
    });
  }
}

// Lets go of what has ended, so that its pen and its bundle are not held any longer.
void RunPool::ClearPlaces(std::unique_lock<std::mutex>& lock) {
  std::list<Place> ended;
  for (auto place = m_places.begin(); place != m_places.end();) {
    auto next = std::next(place);
    if (place->ended) ended.splice(ended.end(), m_places, place);
    place = next;
  }
  if (ended.empty()) return;
  FillPlaces();
  lock.unlock();
  for (Place& place : ended) place.thread.join();
  ended.clear();
  lock.lock();
  m_changed.notify_all();
}

std::vector<std::shared_ptr<PenRun>> RunPool::Running() {
  std::vector<std::shared_ptr<PenRun>> runs;
  for (const Place& place : m_places) runs.push_back(place.run);
  return runs;
}

// Looks at the bus four times a second and repeats a stop once a second.
void RunPool::LookAfter() {
  constexpr std::chrono::milliseconds step(250);
  constexpr int stepsPerSecond = 4;
  std::unique_lock<std::mutex> lock(m_lock);
  auto next = std::chrono::steady_clock::now() + step;
  for (int tick = 1; !m_ending;) {
    m_changed.wait_until(lock, next);
    ClearPlaces(lock);
    if (std::chrono::steady_clock::now() < next) continue;
    next += step;
    ++tick;
    std::vector<std::shared_ptr<PenRun>> runs = Running();
    if (runs.empty()) continue;
    lock.unlock();
    Poll(runs);
    for (const auto& run : runs) {
      if (tick % stepsPerSecond == 0 && run->IsStopRequested()) run->RequestStop();
    }
    runs.clear();
    lock.lock();
  }
}
