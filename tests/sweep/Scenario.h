// An install and the removal of a group, with something going wrong at one of their pen calls. The pen of the install
// has older firmware, an old application of one group and an application of another group that the bundle raises
// without carrying it; the pen of the removal holds everything.
#ifndef QUARVEL_TESTS_SWEEP_SCENARIO_H
#define QUARVEL_TESTS_SWEEP_SCENARIO_H

#include <map>
#include <string>
#include <vector>

#include "installer/QuarvelPublic.h"
#include "tests/support/Autumn.h"
#include "tests/support/TestLog.h"

enum class Run { kInstall, kRemoval };
// What happens at a pen call: it fails; before it the pen is unplugged, or the host asks to abort; it takes a minute
// and a half; it does its work, but says that it failed.
enum class Mishap { kFail, kUnplug, kAbort, kLate, kLost };

// A mishap at the call of this number, from 1.
struct Strike {
  Mishap mishap;
  int call;
  std::string function{};  // found when it happens; "" for a run that ended before
};

constexpr int32_t kSweptError = 4711;  // what a failing call answers

// What came of one mishap.
struct Outcome {
  std::string function;            // the pen function at which the first happened
  std::vector<std::string> calls;  // the pen functions of the run
  InsResCode result = insSuccess;
  std::string logged;  // the first message that tells of it
  std::string pen;     // the pen afterwards
  std::string advice;  // what a user has to do, tried out
};

// A loaded bundle, as long as the object lives.
class SweepBundle {
 public:
  SweepBundle();
  ~SweepBundle() { insReleaseBundle(m_handle); }
  SweepBundle(const SweepBundle&) = delete;
  SweepBundle& operator=(const SweepBundle&) = delete;
  int handle() const { return m_handle; }

 private:
  TestBundle m_bundle;
  int m_handle = 0;
};

class Scenario {
 public:
  Scenario(const SweepBundle& bundle, Run run);

  // Without a mishap: the names of the pen functions in the order of their calls.
  std::vector<std::string> Undisturbed();
  // With a mishap before the call of this number, from 1; then does what a user would until all is well. Reports what
  // must not be as a test failure: something left open, progress that goes back, a result that is not among those of
  // a failing call, contents that cannot be reached any more.
  Outcome Disturbed(Mishap mishap, int call);
  // The same with several, in the order of their calls.
  Outcome Disturbed(std::vector<Strike>& strikes);

 private:
  InsResCode Go(uint32_t flags);
  static void CheckNothingLeft(const std::vector<Strike>& strikes);
  void CheckHandle(InsResCode result, const std::vector<Strike>& strikes) const;
  std::string FirstComplaint();
  std::string DescribePen() const;
  bool IsWell() const;
  std::string Recover(InsResCode result);
  static int32_t OnReport(int32_t penHandle, const PenUpdateProgressCallbackInfo* info, void* userData);

  const SweepBundle& m_bundle;
  const Run m_run;
  SimPens m_pens;
  TestLog m_log;
  int32_t m_penHandle;
  std::map<std::string, uint64_t> m_progress;  // bytes told of each package
};

#endif
