// What stops a command: one sentence for the person at the desk, and the exit status that goes with it.
#ifndef QUARVEL_AUTHORING_FAILURE_H
#define QUARVEL_AUTHORING_FAILURE_H

#include <stdexcept>
#include <string>

namespace authoring {

// Exit statuses of quarvel-bundle; the manual page lists them.
enum class ExitStatus : int {
  kDone = 0,
  kFindings = 1,  // a check ran and did not pass: lint findings, a failed verification, a difference
  kUsage = 2,     // the command line is not understood
  kFile = 3,      // a file or folder cannot be read or written, or is not what the command needs
  kKey = 4,       // a key, certificate, passphrase or signature cannot be used
};

// Thrown by the library, caught once, in the program's main function.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& sentence) : std::runtime_error(sentence), m_status(status) {}
  ExitStatus status() const { return m_status; }

 private:
  ExitStatus m_status;
};

}  // namespace authoring

#endif
