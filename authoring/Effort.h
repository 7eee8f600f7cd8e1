// How far a command is that takes long with large bundles: what it is at, and how many bytes of that are done. Told by
// the thread that works, read by one that shows it.
#ifndef QUARVEL_AUTHORING_EFFORT_H
#define QUARVEL_AUTHORING_EFFORT_H

#include <cstdint>
#include <mutex>
#include <string>

namespace authoring {

class Effort {
 public:
  struct Step {
    std::string name;    // "Signing"
    uint64_t total = 0;  // bytes; 0 where they are not counted
    uint64_t done = 0;
  };

  Effort() = default;
  Effort(const Effort&) = delete;
  Effort& operator=(const Effort&) = delete;

  void Begin(const std::string& name, uint64_t total) {
    std::lock_guard<std::mutex> guard(m_lock);
    m_step = {name, total, 0};
  }
  void Add(uint64_t bytes) {
    std::lock_guard<std::mutex> guard(m_lock);
    m_step.done += bytes;
  }
  Step Now() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_step;
  }

 private:
  mutable std::mutex m_lock;  // guards what follows
  Step m_step;
};

}  // namespace authoring

#endif
