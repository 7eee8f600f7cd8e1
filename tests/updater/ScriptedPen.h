// A pen library that a test writes: it answers the nineteen functions from a few facts and from answers that the test
// gives for single calls, and writes down every call with its arguments. Linked into a program, it stands before
// libTessvik. One at a time is in force, from construction to destruction; one thread calls it.
#ifndef QUARVEL_TESTS_UPDATER_SCRIPTEDPEN_H
#define QUARVEL_TESTS_UPDATER_SCRIPTEDPEN_H

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Tessvik.h"

// A pen on the bus. One that cannot tell its id has 0.
struct PenFacts {
  uint64_t id = 0;
  int32_t type = 1;
  int32_t state = pcPenStateNormal;
};

// What one call of a function comes to.
struct ScriptedAnswer {
  int32_t result = 0;
  std::optional<int32_t> value{};  // a count or a state, where the function gives one
  std::function<void()> deed{};    // what happens meanwhile
};

// A penlet, by its fields; `present` is 0 for an empty slot.
struct PenletFacts {
  const char* guid = "";
  const char* version = "";
  const char* group = "";
  const char* groupVersion = "";
  int32_t present = 1;
  uint64_t firstId = 0, secondId = 0;
};
PenletInfo MakePenlet(const PenletFacts& facts);

class ScriptedPen {
 public:
  ScriptedPen();
  ~ScriptedPen();
  ScriptedPen(const ScriptedPen&) = delete;
  ScriptedPen& operator=(const ScriptedPen&) = delete;

  // The facts: a pen of type 1 under handle 3 at the beginning, with old firmware and no penlets.
  std::map<int32_t, PenFacts> pens = {{3, {.id = 0x2a}}};
  std::string firmware = "12-34-080914";
  std::string suffix = "b1";
  std::vector<PenletInfo> penlets;

  // Single calls: the answers of a function's next calls, by its name; those after them follow from the facts.
  std::map<std::string, std::deque<ScriptedAnswer>> answers;
  // Answers the n-th call of a function from now on, from 1.
  void Answer(const std::string& function, int number, const ScriptedAnswer& answer);

  // "pcStartObex(3, 30000)": every argument but places for answers and the progress function, files by their names
  // alone, attributes as "2=Notes". Calls() takes all, Calls(name) those of one function.
  std::vector<std::string> Calls(const std::string& function = "") const;
  // The progress function's arguments of the last transfer.
  pcProgressFunction progress = nullptr;
  void* context = nullptr;

  static constexpr int32_t kChannel = 77;

  // For the functions of the library.
  ScriptedAnswer Note(const std::string& function, const std::string& arguments);
  int32_t Transfer(const std::string& function, const std::string& arguments, pcProgressFunction given, void* with);

 private:
  std::vector<std::string> m_calls;
};

#endif
