// Ctrl-C on pens that are slow to answer.
#include <gtest/gtest.h>

#include "tests/host/HostRig.h"

namespace {

// Starts an install, waits until `until` shows in the events, sends so many interrupts, or until it has ended, and
// tells the status. Of two interrupts at once a busy program sees one.
ProgramResult Interrupted(const HostRig& rig, const std::string& until, int interrupts) {
  // Without job control the shell would let the program ignore the interrupt.
  std::string script =
      "set -m\n\"$quarvel\" install \"$bundle\" --cert \"$cert\" --all --json >\"$dir/events\" & run=$!\n"
      "for i in $(seq 200); do grep -q '" +
      until + "' \"$dir/events\" && break; sleep 0.05; done\n";
  script += "for i in $(seq " + std::to_string(interrupts) + "); do kill -INT $run || break; sleep 0.2; done\n";
  return rig.Shell(script + "wait $run");
}

TEST(Interrupt, OneAbortsAndTellsHowThePenWasLeft) {
  HostRig rig;
  rig.AddPen("0x2a", {"transfer-speed=4", "tick-size=1"});
  ProgramResult result = Interrupted(rig, "transferring", 1);
  EXPECT_EQ(result.status, 6) << result.err;
  EXPECT_PRED2(Has, result.err, "Stopping: the pens are asked to abort");
  EXPECT_PRED2(Has, result.err, "was left in normal operation, with firmware 8.9.14.b1 and 1 applications");
  std::string events = ReadWholeFile(rig.folder() / "events");
  EXPECT_EQ(EventsOf(events, "result").at(0).at("class"), "aborted");
  EXPECT_EQ(EventsOf(events, "result").at(0).at("packages").at(0).at("outcome"), "not finished");
}

TEST(Interrupt, APenInDownloadModeIsToldAsThat) {
  HostRig rig(FirmwareBundle());
  rig.AddPen("0x2a", {"transfer-speed=4", "tick-size=1"});
  ProgramResult result = Interrupted(rig, "Firmware", 1);
  EXPECT_EQ(result.status, 6) << result.err;
  EXPECT_PRED2(Has, result.err, "was left in download mode");
}

// A pen that hears no abort: a tick takes ten seconds.
TEST(Interrupt, TheSecondExplainsAndTheThirdEndsTheProcess) {
  HostRig rig;
  rig.AddPen("0x2a", {"transfer-speed=4", "tick-size=40"});
  ProgramResult result = Interrupted(rig, "transferring", 20);
  EXPECT_EQ(result.status, 130) << result.err;
  size_t first = result.err.find("Stopping:");
  size_t second = result.err.find("A third Ctrl-C ends this program at once");
  size_t third = result.err.find("stopped at once");
  EXPECT_LT(first, second);
  EXPECT_LT(second, third);
  EXPECT_NE(third, std::string::npos) << result.err;
}

// As under nohup: the pen gets everything.
TEST(Interrupt, ASignalThatWasIgnoredAtTheStartStaysIgnored) {
  HostRig rig;
  rig.AddPen("0x2a", {"transfer-speed=400", "tick-size=16"});
  ProgramResult result = rig.Shell(
      "trap '' HUP INT\n\"$quarvel\" install \"$bundle\" --cert \"$cert\" --all --json >\"$dir/events\" & run=$!\n"
      "for i in $(seq 200); do grep -q transferring \"$dir/events\" && break; sleep 0.05; done\n"
      "kill -HUP $run; kill -INT $run; wait $run");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(EventsOf(ReadWholeFile(rig.folder() / "events"), "result").at(0).at("class"), "done");
}

}  // namespace
