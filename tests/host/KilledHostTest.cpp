// The program is killed at each of its pen calls in turn; what it held is free and the next run finishes the work.
#include <gtest/gtest.h>

#include <numeric>

#include "tests/host/HostRig.h"

namespace {

constexpr int kKilled = 128 + 9;

Json Pen(const HostRig& rig) {
  return Json::parse(rig.Quarvel({"pens", "--json"}).out).at("pens").at(0);
}

// An install that is killed at a pen call, and what a person does next: install again, where the pen was left in
// download mode after plugging it in anew. Gives the killed run's status and, as its output, what the pen then holds.
ProgramResult KilledAt(int call) {
  HostRig rig(FirmwareBundle());
  rig.AddPen("0x2a", {"kills-host-at=" + std::to_string(call), "leave-time=0", "return-time=0"});
  const Words install{"--all"};
  ProgramResult killed = rig.Install(install);
  rig.Sim({"set", "0x2a", "kills-host-at=0"});
  if (Pen(rig).at("state") == "download") {
    EXPECT_EQ(rig.Install(install).status, 5) << "killed at call " << call;
    rig.Sim({"plug", "0x2a"});
  }
  const ProgramResult next = rig.Install(install);
  EXPECT_EQ(next.status, 0) << "killed at call " << call << ": " << next.err;
  EXPECT_EQ(rig.Install({"--all", "--fail-if-current"}).status, 10) << "killed at call " << call;
  const Json pen = Pen(rig);
  killed.out = pen.at("firmware").get<std::string>();
  for (const Json& penlet : pen.at("penlets")) {
    killed.out += "; " + penlet.at("guid").get<std::string>() + ' ' + penlet.at("version").get<std::string>();
  }
  return killed;
}

}  // namespace

TEST(KilledHost, LeavesNothingThatKeepsTheNextRunFromItsWork) {
  constexpr int kAtOnce = 16;
  int first = 1, killed = 0;
  for (bool wasKilled = true; wasKilled; first += kAtOnce) {
    std::vector<int> calls(kAtOnce);
    std::iota(calls.begin(), calls.end(), first);
    for (const ProgramResult& result : RunAll(calls, KilledAt)) {
      wasKilled = result.status == kKilled;
      killed += wasKilled;
      EXPECT_TRUE(wasKilled || result.status == 0) << result.status << result.err;
      EXPECT_EQ(result.out, "8.9.15.b2; sketch 2.3; writer 3.1.0");
    }
  }
  EXPECT_GT(killed, 40) << "an install of firmware and applications makes more pen calls than that";
}
