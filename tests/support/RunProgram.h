// Runs a program as a person or a script would and keeps what it said.
#ifndef QUARVEL_TESTS_SUPPORT_RUNPROGRAM_H
#define QUARVEL_TESTS_SUPPORT_RUNPROGRAM_H

#include <map>
#include <string>
#include <vector>

struct ProgramResult {
  int status = -1;  // the exit status; 128 plus the signal's number when a signal ended it
  std::string out;
  std::string err;
};

struct ProgramInput {
  std::string stdinText;                           // standard input holds this and ends
  std::map<std::string, std::string> environment;  // added to the test's own
};

// Waits for the program's end. `arguments` begins with the program's path; throws when it cannot be started.
ProgramResult RunProgram(const std::vector<std::string>& arguments, const ProgramInput& input = {});

#endif
