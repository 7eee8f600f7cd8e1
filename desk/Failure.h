// What stops a command or a run before it begins: one sentence for the person at the desk, and the exit status that
// goes with it.
#ifndef QUARVEL_DESK_FAILURE_H
#define QUARVEL_DESK_FAILURE_H

#include <stdexcept>
#include <string>

#include "desk/ResultTexts.h"

// Thrown by anything below a command, caught once, where the command was called. The sentence says what to do.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& sentence) : std::runtime_error(sentence), m_status(status) {}
  ExitStatus Status() const { return m_status; }

 private:
  ExitStatus m_status;
};

// A failed call of the library: its code and what the log says of it.
class CallFailure : public Failure {
 public:
  CallFailure(InsResCode code, std::string detail)
      : Failure(StatusOf(code), std::string(TextOf(code).meaning)), m_code(code), m_detail(std::move(detail)) {}
  InsResCode Code() const { return m_code; }
  const std::string& Detail() const { return m_detail; }

 private:
  InsResCode m_code;
  std::string m_detail;
};

#endif
