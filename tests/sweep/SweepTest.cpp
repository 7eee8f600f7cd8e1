// Something goes wrong at each pen call of an install and of a removal in turn.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <set>

#include "tests/sweep/FaultPage.h"
#include "tests/sweep/Scenario.h"

namespace {

struct Sweep {
  const char* name;
  Run run;
  Mishap mishap;
  const char* heading;
};

// What the test's name says of its row.
void PrintTo(const Sweep& sweep, std::ostream* out) {
  *out << sweep.name;
}

constexpr Sweep kSweeps[] = {
    {"InstallFail", Run::kInstall, Mishap::kFail, "## A call fails in an install"},
    {"InstallUnplug", Run::kInstall, Mishap::kUnplug, "## The pen is unplugged before a call of an install"},
    {"InstallAbort", Run::kInstall, Mishap::kAbort, "## The host aborts before a call of an install"},
    {"RemovalFail", Run::kRemoval, Mishap::kFail, "## A call fails in a removal"},
    {"RemovalUnplug", Run::kRemoval, Mishap::kUnplug, "## The pen is unplugged before a call of a removal"},
    {"RemovalAbort", Run::kRemoval, Mishap::kAbort, "## The host aborts before a call of a removal"},
};

// The results with which an install may end when a call of this function fails. A pen that cannot read one item of its
// list holds it all the same, so such a run may go on; handles that cannot be had look like a pen that has left.
const std::map<std::string, std::set<InsResCode>> kAllowed = {
    {"pcGetPenHandles", {insSuccess, insFirmwareFailed, insTimeout}},
    {"pcGetPenId", {insSuccess, insPenFailure, insTimeout}},
    {"pcGetPenType", {insSuccess, insPenFailure}},
    {"pcGetPenState", {insSuccess, insPenFailure, insFirmwareFailed}},
    {"pcGetPenInfo", {insPenFailure}},
    {"pcGetVersionInfo", {insPenFailure}},
    {"pcEnumeratePen", {insPenFailure}},
    {"pcRegisterVolatile", {insPenFailure}},
    {"pcUnRegisterVolatile", {insPenFailure}},
    {"pcStartObex", {insPenFailure}},
    {"pcStopObex", {insSuccess}},
    {"pcGetPenletInfo", {insPenFailure}},
    {"pcGetPenletCount", {insPenFailure}},
    {"pcGetPenletItem", {insSuccess, insPenFailure, insVerifyPenFailed}},
    {"pcInstallPenlet", {insAppFailed}},
    {"pcSetPenletAttrib", {insAppFailed, insPenFailure}},
    {"pcDfuDetach", {insFirmwareFailed}},
    {"pcDfuDownload", {insFirmwareFailed}},
};

bool IsAllowed(const Sweep& sweep, const Outcome& outcome) {
  const InsResCode result = outcome.result;
  // A removal goes on past penlets that it cannot read or remove.
  if (sweep.run == Run::kRemoval && sweep.mishap != Mishap::kAbort) {
    return result == insPenFailure || result == insSuccess;
  }
  switch (sweep.mishap) {
    case Mishap::kFail:
      return kAllowed.at(outcome.function).contains(result);
    // Once the pen had another handle, the last call of the run is about that one, fails and has the last word.
    case Mishap::kUnplug:
      return result == insPenFailure || result == insFirmwareFailed || result == insTimeout;
    // A request that comes before the run has begun, or after its last transfer, changes nothing. While the pen is
    // away, ending the run leaves the handle at one that is gone; the last call of the run then fails.
    case Mishap::kAbort:
      return result == insAborted || result == insSuccess ||
             (result == insPenFailure && outcome.function == "pcGetPenHandles");
    case Mishap::kLate:
    case Mishap::kLost:
      break;  // in pairs alone
  }
  return false;
}

class EveryCall : public testing::TestWithParam<Sweep> {};

}  // namespace

TEST_P(EveryCall, EndsAsDocumentedAndCanBeMadeGood) {
  const Sweep& sweep = GetParam();
  const SweepBundle bundle;
  const std::vector<std::string> calls = Scenario(bundle, sweep.run).Undisturbed();
  ASSERT_GT(calls.size(), 10U);
  std::vector<Outcome> outcomes;
  for (int call = 1; call <= static_cast<int>(calls.size()); ++call) {
    SCOPED_TRACE("call " + std::to_string(call) + ", " + calls[static_cast<size_t>(call) - 1]);
    outcomes.push_back(Scenario(bundle, sweep.run).Disturbed(sweep.mishap, call));
    EXPECT_EQ(outcomes.back().function, calls[static_cast<size_t>(call) - 1]) << "the runs are alike up to the mishap";
    EXPECT_TRUE(IsAllowed(sweep, outcomes.back())) << "ended with " << outcomes.back().result;
  }
  const std::string section = FaultSection(sweep.heading, outcomes);
  std::string page = ReadWholeFile(FAULTS_PAGE);
  if (std::getenv("QUARVEL_WRITE_FAULTS")) {
    ReplaceSection(page, sweep.heading, section);
    std::ofstream(FAULTS_PAGE, std::ios::binary) << page;
  }
  const std::string known = PageSection(page, sweep.heading);
  EXPECT_EQ(known.substr(0, known.find_last_not_of('\n') + 1) + "\n", section)
      << "docs/faults.md says otherwise; QUARVEL_WRITE_FAULTS=1 sweep_tests writes it anew";
}

INSTANTIATE_TEST_SUITE_P(Sweeps, EveryCall, testing::ValuesIn(kSweeps),
                         [](const auto& row) { return std::string(row.param.name); });
