// What stops a command: one sentence for the person at the desk, and the exit status that goes with it.
#ifndef QUARVEL_HOST_FAILURE_H
#define QUARVEL_HOST_FAILURE_H

#include <stdexcept>
#include <string>

#include "host/ResultTexts.h"

// Thrown by anything below a command, caught once, where the command was called. The sentence says what to do.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& sentence) : std::runtime_error(sentence), m_status(status) {}
  ExitStatus Status() const { return m_status; }

 private:
  ExitStatus m_status;
};

#endif
