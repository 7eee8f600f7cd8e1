// quarvel history, and the report of any kept run, on runs that went well, failed, were stopped and were killed.
#include <gtest/gtest.h>

#include "host/When.h"
#include "tests/host/HostRig.h"

namespace {

// A run that is killed while it sends: the pen is slow.
void Kill(const HostRig& rig) {
  rig.Sim({"set", "0x2a", "transfer-speed=20", "tick-size=4"});
  rig.Shell(
      "\"$quarvel\" install \"$bundle\" --cert \"$cert\" --all --force --json >\"$dir/events\" & run=$!\n"
      "for i in $(seq 200); do grep -q transferring \"$dir/events\" && break; sleep 0.05; done\n"
      "\"$quarvel\" history >\"$dir/meanwhile\"; kill -9 $run; wait $run");
}

TEST(HistoryCommand, TellsWhatBecameOfEachRun) {
  HostRig rig;
  EXPECT_PRED2(Has, rig.Quarvel({"history"}).out, "The history has no such run.");
  EXPECT_PRED2(Has, rig.Quarvel({"history", "show", "last"}).err, "has no run yet");
  rig.AddPen();
  ASSERT_EQ(rig.Install().status, 0);
  ASSERT_EQ(rig.Install().status, 0);
  ASSERT_EQ(rig.Quarvel({"verify", "BUNDLE", "--cert", "CERT"}).status, 0);
  ASSERT_EQ(rig.Install({"--all", "--plan"}).status, 0);
  ASSERT_EQ(rig.Install({"--pen", "7"}).status, 5);
  Kill(rig);
  EXPECT_PRED2(Has, ReadWholeFile(rig.folder() / "meanwhile"), "running");

  std::string list = rig.Quarvel({"history"}).out;
  std::vector<std::string> results{"ended without a result", "failed: No pen 0x0000000000000007 is connected",
                                   "nothing to do", "done"};
  for (size_t at = 0; const std::string& result : results) {
    at = list.find(result, at);
    ASSERT_NE(at, std::string::npos) << result << " in this order:\n" << list;
  }
  EXPECT_FALSE(Has(list, "verify"));
  EXPECT_EQ(Count(rig.Quarvel({"history", "--all"}).out, "\n"), 7U);
  EXPECT_PRED2(Has, rig.Quarvel({"history", "--limit", "1"}).out, "The newest 1; --limit 0 lists all.");
  EXPECT_EQ(Count(rig.Quarvel({"history", "--failed"}).out, "\n"), 3U);
  EXPECT_EQ(Count(rig.Quarvel({"history", "--pen", "0x2a"}).out, "\n"), 4U);

  Json runs = Json::parse(rig.Quarvel({"history", "--json"}).out).at("runs");
  ASSERT_EQ(runs.size(), 4U);
  EXPECT_EQ(runs[0].at("state"), "lost");
  EXPECT_EQ(runs[3].at("pens").at(0).at("packages").at(1).at("outcome"), "installed");

  ProgramResult show = rig.Quarvel({"history", "show", "1", "--lines"});
  EXPECT_PRED2(Has, show.out, "Run 1: install, ");
  EXPECT_PRED2(Has, show.out, "writer.pen  3.1.0  installed");
  EXPECT_PRED2(Has, show.out, "[insStartInstall     ] -Ret=0") << "the log's last lines are there too";
  EXPECT_EQ(rig.Quarvel({"history", "show", "99"}).status, 2);
  EXPECT_EQ(rig.Quarvel({"history", "--since", "soon"}).status, 2);
  EXPECT_PRED2(Has, rig.Quarvel({"history", "show", "x"}).err, "\"x\" is no run");
}

TEST(HistoryCommand, FitsTheWindow) {
  HostRig rig;
  rig.AddPen("0x2a", {"free-space=0"});
  rig.Install();
  const struct {
    int columns;
    const char* row;
  } rows[] = {{60, "  install  0x000000000000002a  failed (-201)"},
              {80, "  install  0x000000000000002a  bundle~  failed (-201)"},
              {200, "failed: installing an application failed (-201)"}};
  for (const auto& row : rows) {
    std::string out = rig.Shell("export NO_COLOR=1; script -qec 'stty cols " + std::to_string(row.columns) +
                                "; \"$quarvel\" history' /dev/null")
                          .out;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), static_cast<size_t>(row.columns + 1));
    EXPECT_PRED2(Has, out, row.columns == 80 ? "failed (-201)" : row.row);
  }
}

// The third Ctrl-C, or the first one before any pen is touched, still tells the history.
TEST(HistoryCommand, AStopAtOnceIsTold) {
  HostRig rig;
  rig.AddPen("0x2a", {"transfer-speed=4", "tick-size=40"});
  rig.Shell(
      "set -m\n\"$quarvel\" install \"$bundle\" --cert \"$cert\" --all --json >\"$dir/events\" & run=$!\n"
      "for i in $(seq 200); do grep -q transferring \"$dir/events\" && break; sleep 0.05; done\n"
      "for i in $(seq 20); do kill -INT $run || break; sleep 0.2; done; wait $run");
  EXPECT_PRED2(Has, rig.Quarvel({"history"}).out, "stopped at once, without a result");
}

TEST(HistoryCommand, WarnsOfAHistoryThatCannotBeWrittenAndOfABoundThatIsNone) {
  HostRig rig;
  rig.AddPen();
  ProgramResult bound = rig.Shell("QUARVEL_HISTORY_DAYS=x \"$quarvel\" install \"$bundle\" --cert \"$cert\" --all");
  EXPECT_EQ(bound.status, 0);
  EXPECT_EQ(bound.err, "quarvel: warning: QUARVEL_HISTORY_DAYS is \"x\", which is no number; 365 is taken.\n");
  ProgramResult state = rig.Shell("XDG_STATE_HOME=/proc \"$quarvel\" install \"$bundle\" --cert \"$cert\" --all");
  EXPECT_EQ(state.status, 0);
  EXPECT_PRED2(Has, state.err, "quarvel: warning: this run is not kept: no folder can be made in /proc/quarvel");
  EXPECT_EQ(Count(state.err, "\n"), 1U) << state.err;
}

TEST(When, SinceTakesSpansAndDates) {
  setenv("TZ", "UTC", 1);
  tzset();
  constexpr time_t now = 1'000'000'000;  // 2001-09-09T01:46:40Z
  const struct {
    const char* text;
    const char* time;
  } rows[] = {{"7d", "2001-09-02T01:46:40Z"},
              {"12h", "2001-09-08T13:46:40Z"},
              {"30m", "2001-09-09T01:16:40Z"},
              {"0d", "2001-09-09T01:46:40Z"},
              {"999999d", "1970-01-01T00:00:00Z"},
              {"2001-02-03", "2001-02-03T00:00:00Z"},
              {"2001-02-03T04:05:06Z", "2001-02-03T04:05:06Z"},
              {"", ""},
              {"d", ""},
              {"-1d", ""},
              {"7", ""},
              {"7x", ""},
              {"1.5d", ""},
              {"9999999d", ""},
              {"2001-13-01", ""},
              {"2001-02-03x", ""},
              {"99999999999999999999d", ""}};
  for (const auto& row : rows) EXPECT_EQ(ParseSince(row.text, now).value_or(""), row.time) << row.text;
  EXPECT_EQ(WhenText("2001-02-03T04:05:06Z", true) + WhenText("2001-02-03T04:05:06Z", false) + WhenText("?", true),
            "2001-02-03 04:0502-03 04:05?");
}

}  // namespace
