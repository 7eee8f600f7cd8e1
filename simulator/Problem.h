// How the simulator says that something is wrong: one of PB_ERRORS and the case at hand, thrown and turned into the
// number at the exported functions.
#ifndef QUARVEL_SIMULATOR_PROBLEM_H
#define QUARVEL_SIMULATOR_PROBLEM_H

#include <cstdint>
#include <stdexcept>
#include <string>

#include "simulator/PenBench.h"

namespace sim {

class Problem : public std::runtime_error {
 public:
  explicit Problem(int32_t error) : Problem(error, pbErrorText(error)) {}
  Problem(int32_t error, const std::string& words) : std::runtime_error(words), m_error(error) {}

  int32_t error() const { return m_error; }

 private:
  int32_t m_error;
};

}  // namespace sim

#endif
