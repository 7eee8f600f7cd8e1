// The traces of runs in which something goes wrong, and of what the user does then, played again. Installs in which a
// call fails are not among them: of an application that failed to be read and was replaced since, a trace shows
// nothing.
#include <gtest/gtest.h>

#include <future>
#include <tuple>

#include "tests/support/RunProgram.h"
#include "tests/sweep/Scenario.h"

namespace {

class EveryTrace : public testing::TestWithParam<std::tuple<Run, Mishap>> {};

ProgramResult Replay(const std::string& trace) {
  return RunProgram({TESSVIK_SIM_PROGRAM, "replay", trace});
}

}  // namespace

TEST_P(EveryTrace, GoesTheSameWayAgain) {
  const auto [run, mishap] = GetParam();
  const SweepBundle bundle;
  const auto calls = static_cast<int>(Scenario(bundle, run).Undisturbed().size());
  TempFolder folder;
  for (int call = 1; call <= calls; ++call) {
    Scenario scenario(bundle, run);
    ASSERT_EQ(pbTrace((folder / std::to_string(call)).c_str()), 0);
    scenario.Disturbed(mishap, call);
    pbTrace(nullptr);
  }
  // Two at a time.
  std::vector<std::future<ProgramResult>> replays;
  for (int call = 1; call <= calls; ++call) {
    const auto policy = call % 2 ? std::launch::async : std::launch::deferred;
    replays.push_back(std::async(policy, Replay, folder / std::to_string(call)));
    if (call % 2 == 0) replays[replays.size() - 2].wait(), replays.back().wait();
  }
  for (size_t i = 0; i < replays.size(); ++i) {
    const ProgramResult result = replays[i].get();
    EXPECT_EQ(result.status, 0) << "mishap at call " << i + 1 << "\n" << result.out << result.err;
    EXPECT_NE(result.out.find(" calls made, 0 with another outcome"), std::string::npos);
  }
}

INSTANTIATE_TEST_SUITE_P(Replay, EveryTrace,
                         testing::Values(std::tuple(Run::kInstall, Mishap::kUnplug),
                                         std::tuple(Run::kInstall, Mishap::kAbort),
                                         std::tuple(Run::kRemoval, Mishap::kFail),
                                         std::tuple(Run::kRemoval, Mishap::kUnplug),
                                         std::tuple(Run::kRemoval, Mishap::kAbort)));
