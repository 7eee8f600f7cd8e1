// The built program on simulated pens, as a person or a script uses it.
#include <gtest/gtest.h>

#include "Common/zip/FastInflate.h"
#include "tests/host/HostRig.h"

namespace {

TEST(Program, TellsWhatItsLibraryInflatesWith) {
  HostRig rig;
  const Json version = Json::parse(rig.Quarvel({"version", "--json"}).out);
  EXPECT_EQ(version.at("library"), "1.2.13.0");
  EXPECT_EQ(version.at("inflate"), CFastInflate::IsThere() ? "isa-l" : "zlib");
}

struct StatusCase {
  const char* name;
  Words arguments;
  int status;
  const char* says;     // on standard error, or standard output when that is empty
  Words settings = {};  // of the pen
  Words fault = {};
};

TEST(Program, EndsWithTheStatusOfTheFailuresClass) {
  const StatusCase cases[] = {
      {"done", {"install", "BUNDLE", "--cert", "CERT", "--all"}, 0, "done"},
      {"verify with a pen",
       {"verify", "BUNDLE", "--cert", "CERT", "--pen", "0x2a"},
       0,
       "is ready; it has firmware 8.9.14.b1"},
      {"removal", {"remove", "Notes", "--pen", "42"}, 0, "removed"},
      {"removal of nothing", {"remove", "notes", "--all"}, 0, "nothing to do"},
      {"no command", {}, 2, "A subcommand is required. See `quarvel --help`."},
      {"unknown command", {"frob"}, 2, "there is no command \"frob\""},
      {"no bundle", {"install"}, 2, "BUNDLE is required. See `quarvel install --help`."},
      {"no pen named", {"install", "BUNDLE", "--cert", "CERT"}, 2, "--pen ID"},
      {"no pen id", {"remove", "Notes", "--pen", "0xzz"}, 2, "\"0xzz\" is no pen id"},
      {"both kinds of pens", {"remove", "Notes", "--pen", "1", "--all"}, 2, "--pen excludes --all"},
      {"unknown decision",
       {"install", "BUNDLE", "--cert", "CERT", "--all", "--on-error", "go"},
       2,
       "go not in {stop,skip,ask}"},
      {"nobody to ask", {"install", "BUNDLE", "--cert", "CERT", "--all", "--on-error", "ask"}, 2, "needs a terminal"},
      {"all in one document", {"pens", "--json", "--ids"}, 2, "--json excludes --ids"},
      {"no certificate file",
       {"verify", "BUNDLE", "--cert", "DIR/none.pem"},
       2,
       "none.pem cannot be read (No such file"},
      {"log in no folder",
       {"verify", "BUNDLE", "--cert", "CERT", "--log", "DIR/no/log"},
       2,
       "choose another with --log"},
      {"report in no folder", {"report", "-o", "DIR/no/report.zip"}, 2, "choose another file with -o"},
      {"no such bundle", {"verify", "DIR/none.bundle", "--cert", "CERT"}, 3, "A file was not found"},
      {"no archive", {"verify", "CERT", "--cert", "CERT"}, 3, "(-101)"},
      {"no such group",
       {"install", "BUNDLE", "--cert", "CERT", "--all", "--group", "Sketches"},
       3,
       "No Resource for pen type 1"},
      {"foreign signer", {"install", "BUNDLE", "--cert", "FOREIGN", "--all"}, 4, "(-305)"},
      {"no certificate", {"verify", "BUNDLE", "--cert", "BUNDLE"}, 4, "(-302)"},
      {"pen not there",
       {"install", "BUNDLE", "--cert", "CERT", "--pen", "7"},
       5,
       "No pen 0x0000000000000007 is connected"},
      {"pen in use", {"install", "BUNDLE", "--cert", "CERT", "--all"}, 5, "(-6)", {}, {"pcStartObex"}},
      {"pen not ready", {"verify", "BUNDLE", "--cert", "CERT", "--all"}, 5, "cannot be read", {}, {"pcStartObex"}},
      {"pen is full", {"install", "BUNDLE", "--cert", "CERT", "--all"}, 5, "(-201)", {"free-space=0"}},
      {"all skipped on a full pen",
       {"install", "BUNDLE", "--cert", "CERT", "--all", "--on-error", "skip"},
       7,
       "(-202)",
       {"free-space=0"}},
  };
  std::vector<ProgramResult> results = RunAll(cases, [](const StatusCase& row) {
    HostRig rig;
    rig.AddPen("0x2a", row.settings);
    if (!row.fault.empty()) rig.Sim({"fault", row.fault[0]});
    return rig.Quarvel(row.arguments);
  });
  for (size_t i = 0; i < results.size(); ++i) {
    const StatusCase& row = cases[i];
    const ProgramResult& result = results[i];
    SCOPED_TRACE(row.name);
    EXPECT_EQ(result.status, row.status) << result.out << result.err;
    EXPECT_PRED2(Has, result.err.empty() ? result.out : result.err, row.says);
    if (row.status == 2) {
      EXPECT_EQ(Count(result.err, "\n"), 1U) << result.err;
    }
  }
}

TEST(Program, TellsWhatBecameOfEachPackageAndWhy) {
  HostRig rig;
  rig.AddPen();
  ASSERT_EQ(rig.Install({"--all", "--group", "Notes"}).status, 0);
  rig.Sim({"remove", "0x2a"});
  rig.AddPen();
  rig.Sim({"set", "0x2a", "unreadable=none"});
  ProgramResult first = rig.Install();
  EXPECT_PRED2(Has, first.out, "through with sketch.pen");
  EXPECT_EQ(Count(first.out, "  installed\n"), 2U) << first.out;
  ASSERT_EQ(rig.Quarvel({"remove", "Notes", "--all"}).status, 0);

  // One application of the two is there.
  HostRig half;
  half.Sim({"add", "--id", "0x2a", "--penlet",
            "guid=sketch,name=Sketchpad,version=2.3,build=2,group=Notes,group-version=3.1"});
  ProgramResult second = half.Install();
  EXPECT_EQ(second.status, 0) << second.err;
  EXPECT_PRED2(Has, second.out, "skipped       same version already installed\n");
  EXPECT_EQ(Count(second.out, "  installed\n"), 1U) << second.out;

  ProgramResult third = half.Install();
  EXPECT_PRED2(Has, third.out, "nothing to do: the pen already holds everything");
  EXPECT_EQ(half.Install({"--all", "--fail-if-current"}).status, 10);
  ProgramResult forced = half.Install({"--all", "--force", "--quiet"});
  EXPECT_EQ(forced.status, 0);
  EXPECT_EQ(forced.out + forced.err, "");
}

TEST(Program, WritesJsonLinesOnStandardOutputOnly) {
  HostRig rig;
  rig.AddPen();
  ProgramResult result = rig.Install({"--all", "--json"});
  ASSERT_EQ(result.status, 0) << result.err;
  std::vector<Json> lines = Lines(result.out);
  ASSERT_GE(lines.size(), 4U);
  for (const Json& line : lines) EXPECT_EQ(line.at("schema"), 1) << line;
  EXPECT_EQ(lines.front().at("event"), "run");
  EXPECT_EQ(lines.front().at("pen"), kAda);
  std::string files;
  for (const Json& line : EventsOf(result.out, "package")) {
    if (line.at("state") == "finished") files += line.at("file").get<std::string>() + ' ';
  }
  EXPECT_EQ(files, "sketch.pen writer.pen ");
  const Json& end = lines.back();
  EXPECT_EQ(end.at("event"), "result");
  EXPECT_EQ(end.at("class"), "done");
  EXPECT_EQ(end.at("packages").at(1).at("outcome"), "installed");
  EXPECT_PRED2(Has, result.err, "  installed");
}

TEST(Program, EveryFailureIsAnEventToo) {
  HostRig rig;
  rig.AddPen("0x2a", {"free-space=0"});
  ProgramResult stopped = rig.Install({"--all", "--json"});
  std::vector<Json> errors = EventsOf(stopped.out, "error");
  ASSERT_EQ(errors.size(), 1U) << stopped.out;
  EXPECT_EQ(errors[0].at("decision"), "stop");
  EXPECT_EQ(errors[0].at("code"), -201);
  EXPECT_EQ(EventsOf(stopped.out, "result").at(0).at("exit"), 5);

  ProgramResult skipped = rig.Install({"--all", "--json", "--on-error", "skip"});
  EXPECT_EQ(EventsOf(skipped.out, "error").size(), 2U) << skipped.out;
  ProgramResult missing = rig.Quarvel({"install", "DIR/none.bundle", "--cert", "CERT", "--all", "--json"});
  EXPECT_EQ(EventsOf(missing.out, "result").at(0).at("class"), "bundle");
  ProgramResult noPen = rig.Quarvel({"install", "BUNDLE", "--cert", "CERT", "--pen", "9", "--json"});
  EXPECT_TRUE(EventsOf(noPen.out, "result").at(0).at("code").is_null());
}

TEST(Program, RefusesABundleOfWhichOnePackageHasAForeignSigner) {
  TestBundleOptions options = NotesBundle();
  const TestIdentity& other = MakeTestIdentity("/C=SE/O=Elsewhere/CN=Nobody", 1);
  options.signerOf = {{"Notes/writer.pen", &other}};
  HostRig rig(options);
  rig.AddPen();
  ProgramResult result = rig.Install({"--all", "--on-error", "skip"});
  EXPECT_EQ(result.status, 4) << result.err;
  EXPECT_FALSE(Has(rig.Quarvel({"pens"}).out, "Writer"));
}

TEST(Program, ReplacesFirmwareAndTellsItsWaits) {
  HostRig rig(FirmwareBundle());
  rig.AddPen("0x2a", {"leave-time=1500", "return-time=1500", "tick-size=16"});
  ProgramResult result = rig.Install({"--all", "--json"});
  ASSERT_EQ(result.status, 0) << result.err;
  std::vector<Json> waits = EventsOf(result.out, "wait");
  ASSERT_FALSE(waits.empty());
  EXPECT_EQ(waits[0].at("limit"), 60);
  EXPECT_PRED2(Has, result.err, "waiting for the pen to leave: up to 60 s");
  EXPECT_PRED2(Has, result.err, "waiting for the pen to return: up to 60 s");
  Json pens = Json::parse(rig.Quarvel({"pens", "--json"}).out);
  EXPECT_EQ(pens.at("pens").at(0).at("firmware"), "8.9.15.b2");
}

TEST(Program, APenThatIsUpToDateIsNoFailureUnlessAskedFor) {
  HostRig rig;
  rig.AddPen("0x2a");
  ASSERT_EQ(rig.Install().status, 0);
  EXPECT_EQ(rig.Install().status, 0);
  EXPECT_EQ(rig.Install({"--all", "--fail-if-current"}).status, 10);
  rig.AddPen("0x2b");
  EXPECT_EQ(rig.Install({"--all", "--fail-if-current"}).status, 0) << "one of two got something";
}

TEST(Program, APlanTouchesNothing) {
  HostRig rig(FirmwareBundle());
  rig.AddPen();
  std::string before = rig.Quarvel({"pens", "--json"}).out;
  ProgramResult plan = rig.Install({"--all", "--plan", "--json"});
  EXPECT_EQ(plan.status, 0) << plan.err;
  Json told = EventsOf(plan.out, "plan").at(0);
  EXPECT_EQ(told.at("firmware"), true);
  EXPECT_EQ(told.at("packages").at(0).at("action"), "install");
  EXPECT_EQ(rig.Quarvel({"pens", "--json"}).out, before);
  rig.Sim({"set", "0x2a", "mode=download"});
  EXPECT_EQ(rig.Install({"--all", "--plan"}).status, 5) << "a pen that tells no id is not installed on";
}

TEST(Program, MoreThanTwentyPensAreServedInTurnButGetNoFirmware) {
  HostRig rig(FirmwareBundle());
  for (int id = 1; id <= 21; ++id) rig.Sim({"add", "--id", std::to_string(id), "--firmware", "8.9.14.b1"});
  EXPECT_EQ(Count(rig.Quarvel({"pens", "--ids"}).out, "\n"), 21U);
  ProgramResult firmware = rig.Install();
  EXPECT_EQ(firmware.status, 5);
  EXPECT_PRED2(Has, firmware.err, "Disconnect 1, or leave firmware out with --apps");
  ProgramResult apps = rig.Install({"--all", "--apps"});
  EXPECT_EQ(apps.status, 0) << apps.err;
  EXPECT_EQ(Count(apps.out, "  done, in"), 21U);
}

// A pen is lost in its firmware, told as such, and brought back.
TEST(Program, RecoversAPenThatWasLeftInDownloadMode) {
  HostRig rig(FirmwareBundle());
  rig.AddPen();
  rig.Sim({"fault", "pcDfuDownload"});
  ProgramResult lost = rig.Install({"--all", "--json"});
  Json left = EventsOf(lost.out, "result").at(0).at("left");
  EXPECT_EQ(left.at("state"), "download");
  EXPECT_EQ(left.at("tellsId"), false);
  EXPECT_FALSE(Has(lost.err, "Leave the pen connected")) << "a pen that tells no id must be reconnected";
  rig.Sim({"fault", "--clear"});
  ProgramResult recovered = rig.Shell("(sleep 2; '" TESSVIK_SIM_PROGRAM "' unplug 0x2a; '" TESSVIK_SIM_PROGRAM
                                      "' plug 0x2a) & \"$quarvel\" recover --wait 60");
  EXPECT_EQ(recovered.status, 0) << recovered.out << recovered.err;
  EXPECT_PRED2(Has, recovered.out, "it holds everything that it was to get");
  EXPECT_PRED2(Has, rig.Quarvel({"pens"}).out, "8.9.15.b2");
  EXPECT_PRED2(Has, rig.Quarvel({"recover"}).out, "no run that is kept here left one half-way");
}

TEST(Program, FirmwareThatDoesNotTakeIsAFailedVerification) {
  HostRig rig(FirmwareBundle());
  rig.AddPen("0x2a", {"returns-with=8.9.13.b9"});
  ProgramResult result = rig.Install();
  EXPECT_EQ(result.status, 7) << result.out << result.err;
  EXPECT_PRED2(Has, result.err, "What to do: ");
}

// Nobody reads the events, or they cannot be kept: the pen still gets everything.
TEST(Program, ARunOutlivesItsReader) {
  struct Case {
    const char* name;
    const char* where;
    int status;
  };
  const Case cases[] = {{"gone", "| true", 0}, {"closed", ">&-", 0}, {"full disk", ">/dev/full", 2}};
  std::vector<ProgramResult> results = RunAll(cases, [](const Case& row) {
    HostRig rig;
    rig.AddPen("0x2a", {"transfer-speed=400", "tick-size=16"});
    ProgramResult result = rig.Shell(std::string("\"$quarvel\" install \"$bundle\" --cert \"$cert\" --all --json ") +
                                     row.where + "; exit ${PIPESTATUS[0]}");
    result.out = rig.Quarvel({"pens"}).out;
    return result;
  });
  for (size_t i = 0; i < results.size(); ++i) {
    SCOPED_TRACE(cases[i].name);
    EXPECT_PRED2(Has, results[i].out, "Writer");
    EXPECT_EQ(results[i].status, cases[i].status) << results[i].err;
  }
}

TEST(Program, ServesSeveralPensAtOnce) {
  HostRig rig;
  rig.AddPen("0x2a").AddPen("0x2b").AddPen("0x2c", {"free-space=0"});
  ProgramResult two = rig.Install({"--pen", "0x2b", "--pen", "42", "--pen", "43", "--json"});
  ASSERT_EQ(two.status, 0) << two.err;
  std::vector<Json> results = EventsOf(two.out, "result");
  ASSERT_EQ(results.size(), 2U);
  EXPECT_NE(results[0].at("pen"), results[1].at("pen"));

  ProgramResult all = rig.Install({"--all", "--fail-if-current"});
  EXPECT_EQ(all.status, 5) << "the pen that is full fails, whatever the others do";
  EXPECT_EQ(Count(all.out, "nothing to do"), 2U) << all.out;
  EXPECT_EQ(rig.Quarvel({"verify", "BUNDLE", "--cert", "CERT", "--all"}).status, 0);
}

TEST(Program, ListsPensWithWhatTheyHold) {
  HostRig rig;
  EXPECT_PRED2(Has, rig.Quarvel({"pens"}).out, "No pen is connected.");
  rig.AddPen();
  rig.Sim({"add", "--id", "0x2b"});
  rig.Sim({"set", "0x2b", "mode=download"});
  ProgramResult table = rig.Quarvel({"pens"});
  EXPECT_PRED2(Has, table.out, "8.9.14.b1");
  EXPECT_PRED2(Has, table.out, "Notes 3.0");
  EXPECT_PRED2(Has, table.out, "(tells no id)");
  EXPECT_PRED2(Has, table.out, "download");
  EXPECT_EQ(rig.Quarvel({"pens", "--ids"}).out, std::string(kAda) + '\n');
  Json pens = Json::parse(rig.Quarvel({"pens", "--json"}).out).at("pens");
  ASSERT_EQ(pens.size(), 2U);
  EXPECT_EQ(pens[0].at("penlets").at(0).at("groupVersion"), "3.0");
  EXPECT_TRUE(pens[1].at("id").is_null());
  EXPECT_PRED2(Has, rig.Install({"--all", "--firmware"}).err, "A pen in download mode is connected that tells no id");
}

// A terminal that `script` makes.
TEST(Program, DrawsOneLinePerPenOnATerminal) {
  struct Case {
    const char* name;
    const char* environment;
    bool moves;
    bool colours;
  };
  const Case cases[] = {
      {"colours", "", true, true}, {"no colour", "NO_COLOR=1", true, false}, {"dumb", "TERM=dumb", false, false}};
  std::vector<ProgramResult> results = RunAll(cases, [](const Case& row) {
    HostRig rig;
    rig.AddPen("0x2a", {"transfer-speed=400", "tick-size=16"});
    return rig.Shell(std::string("export ") + row.environment +
                     "; script -qec 'stty cols 200; \"$quarvel\" install \"$bundle\" --cert \"$cert\" --all' "
                     "/dev/null");
  });
  for (size_t i = 0; i < results.size(); ++i) {
    const Case& row = cases[i];
    const ProgramResult& result = results[i];
    SCOPED_TRACE(row.name);
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(Has(result.out, "\x1b[K"), row.moves) << result.out;
    EXPECT_EQ(Has(result.out, "\x1b[32m"), row.colours);
    EXPECT_EQ(Has(result.out, "%"), row.moves);
    if (row.moves) {
      EXPECT_PRED2(Has, result.out, " left");
    }
  }
}

TEST(Program, AsksOnATerminal) {
  const std::string answers[] = {"y", "n"};
  std::vector<ProgramResult> results = RunAll(answers, [](const std::string& answer) {
    HostRig rig;
    rig.AddPen("0x2a", {"free-space=0"});
    return rig.Shell("(sleep 1; echo " + answer + "; sleep 1; echo " + answer +
                     ") | script -qec '\"$quarvel\" install \"$bundle\" --cert \"$cert\" --all --on-error "
                     "ask' /dev/null");
  });
  EXPECT_EQ(Count(results[0].out, "and go on? [y/N]"), 2U) << results[0].out;
  EXPECT_EQ(results[0].status, 7);
  EXPECT_EQ(Count(results[1].out, "and go on? [y/N]"), 1U) << results[1].out;
  EXPECT_EQ(results[1].status, 5);
}

}  // namespace
