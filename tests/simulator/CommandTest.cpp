// tessvik-sim, as a person and as a script uses it.
#include <fstream>

#include "tests/simulator/PenOnDesk.h"
#include "tests/support/RunProgram.h"
#include "trace/Recording.h"

namespace {

using Json = nlohmann::ordered_json;

class Command : public PenOnDesk {
 protected:
  ProgramResult Sim(std::vector<std::string> arguments, const std::string& folder = "") {
    arguments.insert(arguments.begin(), SIM_PROGRAM);
    return RunProgram(arguments, {"", {{"TESSVIK_SIM_DIR", folder.empty() ? pens.folder().path().string() : folder}}});
  }
  // What a command that must succeed prints.
  std::string Out(const std::vector<std::string>& arguments, const std::string& folder = "") {
    const ProgramResult result = Sim(arguments, folder);
    EXPECT_EQ(result.status, 0) << arguments.at(0) << ": " << result.err;
    return result.out;
  }

  void Ask() {
    uint64_t id = 0;
    int32_t type = 0;
    EXPECT_EQ(pcGetPenId(handle, &id, nullptr, nullptr, 0), 0);
    EXPECT_EQ(pcGetPenType(handle, &type, 0, 0), 0);
  }

  // What a host does in an install, recorded.
  std::string Record() {
    const std::string trace = files / "trace";
    EXPECT_EQ(pbTrace(trace.c_str()), 0);
    EXPECT_EQ(pcRegisterVolatile("Install", kPen), 0);
    Ask();
    List();
    EXPECT_EQ(Install(PenAppContent("draw", "1.0")), 0);
    const int32_t channel = Open();
    const PenletAttribute group{2, "Art"};
    EXPECT_EQ(pcSetPenletAttrib(handle, channel, "draw", &group, 1), 0);
    EXPECT_EQ(pcUninstallPenlet(handle, channel, "gone"), pbErrNoPenlet);
    EXPECT_EQ(pcStopObex(channel), 0);
    Ask();
    EXPECT_EQ(pcDfuDetach(handle, 0, 0), 0);
    EXPECT_TRUE(LeaveAndReturn());
    EXPECT_EQ(Download(FirmwareContent("8.9.15.b2")), 0);
    EXPECT_TRUE(LeaveAndReturn());
    EXPECT_EQ(pcEnumeratePen(handle), 0U);
    EXPECT_EQ(pcUnRegisterVolatile("Install", kPen), 0);
    EXPECT_EQ(pbTrace(nullptr), 0);
    return trace;
  }
};

}  // namespace

TEST_F(Command, KeepsPens) {
  Out({"add", "--id", "0x99", "--type", "3", "--name", "Ada's", "--firmware", "8.9.14.b1", "--set", "tick-size=10",
       "--penlet", "guid=sketch,name=Sketchpad,version=2.2,build=4,group=Notes,group-version=3.0,kind=paper"});
  const Json pen = Json::parse(Out({"show", "0x99", "--json"}));
  EXPECT_EQ(pen["type"], 3);
  EXPECT_EQ(pen["settings"], (Json{{"tick-size", 10}}));
  EXPECT_EQ(pen["penlets"][0]["groupVersion"], "3.0");
  EXPECT_EQ(Json::parse(Out({"list", "--json"})).size(), 2U);
  EXPECT_NE(Out({"list"}).find("Ada's"), std::string::npos);
  EXPECT_NE(Out({"show", "153"}).find("sketch"), std::string::npos) << "decimal ids are ids too";
  Out({"unplug", "0x99"});
  EXPECT_EQ(Handles().size(), 1U) << "this process sees it";
  Out({"plug", "0x99"});
  Out({"set", "0x99", "never-leaves=true", "name=Bob's"});
  EXPECT_EQ(pens.Pen(0x99).at("settings").at("never-leaves"), true);
  Out({"fault", "pcStartObex", "--call", "2", "--error", "9", "--pen", "0x99"});
  EXPECT_EQ(Json::parse(Out({"fault", "--pen", "0x99", "--json"}))[0]["call"], 2);
  EXPECT_NE(Out({"show", "0x99"}).find("pcStartObex fails with 9 at call 2"), std::string::npos);
  Out({"fault", "--clear", "--pen", "0x99"});
  EXPECT_EQ(Out({"fault", "--pen", "0x99"}), "There are no faults.\n");
  Out({"remove", "0x99"});
  EXPECT_EQ(Json::parse(Out({"list", "--json"})).size(), 1U);
  EXPECT_EQ(Json::parse(Out({"add", "--json"}))["connected"], true) << "an id of its own choice";
}

TEST_F(Command, SaysWhatIsWrongAndWhatToDo) {
  const std::string noTrace = files.Write("none", "not JSON\n");
  const std::string trace = files.Write("trace", "{\"trace\":1}\n");
  const std::string oddTrace =
      files.Write("odd", "{\"begin\":1,\"function\":\"pcFly\",\"in\":{}}\n{\"end\":1,\"result\":0}\n");
  const struct {
    std::vector<std::string> arguments;
    int status;
    const char* words;
  } rows[] = {
      {{"show", "ada"}, 2, "tessvik-sim list"},
      {{"show", "0x5"}, 1, "no pen 0x5"},
      {{"plug", "0x5"}, 1, "no pen 0x5"},
      {{"set", "0x2a", "never-sleeps=1"}, 1, "never-sleeps"},
      {{"set", "0x2a", "tick-size"}, 2, "NAME=VALUE"},
      {{"set", "0x2a", "tick-size=many"}, 1, "a number"},
      {{"add", "--id", "0x2a"}, 1, "already"},
      {{"add", "--penlet", "version=1"}, 2, "guid="},
      {{"add", "--penlet", "guid=a,colour=red"}, 1, "colour"},
      {{"add", "--penlet", "guid=1234567890123456"}, 1, "1 to 15"},
      {{"fault", "pcFly"}, 1, "pcFly"},
      {{"trace"}, 2, "--stop"},
      {{"replay", "/nowhere"}, 2, "/nowhere"},
      {{"replay", noTrace}, 2, "no call of a pen library"},
      {{"replay", trace, "--fault", "pcStartObex"}, 2, "FUNCTION:CALL:ERROR"},
      {{"replay", oddTrace}, 2, "pcFly"},
      {{"dance"}, 2, "--help"},
      {{}, 2, "--help"},
  };
  for (const auto& row : rows) {
    const ProgramResult result = Sim(row.arguments);
    EXPECT_EQ(result.status, row.status) << row.words << ": " << result.err;
    EXPECT_NE(result.err.find(row.words), std::string::npos) << result.err;
    EXPECT_EQ(result.out, "") << row.words;
  }
}

TEST_F(Command, TracesEveryCallOfEveryProcess) {
  const std::string trace = Record();
  const trace::Recording recording = trace::ReadRecordingFile(trace);
  ASSERT_GT(recording.calls.size(), 15U);
  EXPECT_EQ(recording.calls[0].function, "pcRegisterVolatile");
  EXPECT_EQ(recording.calls[0].in, (Json{{"name", "Install"}, {"id", "0x2a"}}));
  EXPECT_EQ(recording.calls[0].result, 0);
  EXPECT_TRUE(recording.HasSimulatedPens(recording.calls[0].process));
  const std::string before = ReadWholeFile(trace);
  Handles();
  EXPECT_EQ(ReadWholeFile(trace), before) << "the trace was ended";
}

TEST_F(Command, BuildsThePensOfATraceAndGoesTheSameWay) {
  const ProgramResult result = Sim({"replay", Record()}, files / "nowhere");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_NE(result.out.find("Built 0x2a: type 2, firmware unknown, 2 applications"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find(" 0 with another outcome"), std::string::npos) << result.out;
  EXPECT_FALSE(std::filesystem::exists(files / "nowhere")) << "the pens of the desk are left alone";
}

TEST_F(Command, NamesTheFirstCallThatGoesAnotherWay) {
  const std::string trace = Record();
  const std::string text = ReadWholeFile(trace);
  const struct {
    const char* name;
    const char* recorded;  // replaced, so that today's library does otherwise
    const char* instead;
    const char* words;
  } rows[] = {
      {"an answer", R"("type":2)", R"("type":3)", R"(pcGetPenType for 0x2a: the answer "type" was 3 and is 2 today)"},
      {"a result", R"("result":111)", R"("result":112)", "pcUninstallPenlet for 0x2a: the result was 112 and is 111"},
  };
  for (const auto& row : rows) {
    std::string changed = text;
    const size_t at = changed.rfind(row.recorded);  // the pen is built from the first
    ASSERT_NE(at, std::string::npos) << row.name << "\n" << text;
    changed.replace(at, std::string(row.recorded).size(), row.instead);
    const ProgramResult result = Sim({"replay", files.Write("changed", changed)});
    EXPECT_EQ(result.status, 1) << row.name << result.out << result.err;
    EXPECT_NE(result.out.find(row.words), std::string::npos) << row.name << "\n" << result.out;
    EXPECT_NE(result.out.find("; the first is call "), std::string::npos) << result.out;
  }
  const ProgramResult failed = Sim({"replay", trace, "--fault", "pcInstallPenlet:1:119"});
  EXPECT_EQ(failed.status, 1);
  EXPECT_NE(failed.out.find("pcInstallPenlet for 0x2a: the result was 0 and is 119 today"), std::string::npos)
      << failed.out;
  EXPECT_NE(failed.out.find("pcSetPenletAttrib for 0x2a: the result was 0 and is 111"), std::string::npos);
}

TEST_F(Command, GivesThePensFailuresThatOnlyPensCanHave) {
  ASSERT_EQ(pbFault("pcInstallPenlet", 1, pbErrSpace), 0);
  ASSERT_EQ(pbFault("pcStartObex", 1, 4711), 0);
  const std::string trace = files / "faulty";
  ASSERT_EQ(pbTrace(trace.c_str()), 0);
  Ask();
  int32_t channel = 0;
  EXPECT_EQ(pcStartObex(&channel, handle, 30000), 4711);
  EXPECT_EQ(Install(PenAppContent("draw", "1.0")), pbErrSpace);
  EXPECT_EQ(Install(PenAppContent("draw", "1.0")), 0);
  ASSERT_EQ(pbTrace(nullptr), 0);
  const ProgramResult result = Sim({"replay", trace});
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_NE(result.out.find("pcInstallPenlet for 0x2a failed with 119; the pen was given"), std::string::npos);
  EXPECT_NE(result.out.find("pcStartObex for 0x2a failed with 4711; the pen was given"), std::string::npos);
  const ProgramResult strict = Sim({"replay", "--strict", "--json", trace});
  EXPECT_EQ(strict.status, 1);
  EXPECT_NE(strict.out.find("the result was 119 and is 0 today"), std::string::npos) << strict.out;
}

TEST_F(Command, IsDescribedWithEverySetting) {
  const std::string help = Out({"set", "--help"});
  const std::string pages = ReadWholeFile(SIM_PAGES);
  std::string text(20000, '\0');
  pbSettings(text.data(), static_cast<int32_t>(text.size()));
  for (const Json& setting : Json::parse(text.c_str())) {
    const std::string name = setting["name"];
    EXPECT_NE(help.find("  " + name + " "), std::string::npos) << name;
    EXPECT_NE(pages.find("| `" + name + "` | " + setting["default"].dump() + " |"), std::string::npos) << name;
  }
#define CHECK_PAGE(name, number, text) EXPECT_NE(pages.find("| " #number " | " text " |"), std::string::npos) << #name;
  PB_ERRORS(CHECK_PAGE)
#undef CHECK_PAGE
  const std::string manual = ReadWholeFile(SIM_MANUAL);
  for (const char* command : {"add", "list", "show", "remove", "plug", "unplug", "set", "fault", "trace", "replay"}) {
    EXPECT_NE(manual.find(std::string(".B ") + command + "\n"), std::string::npos) << command;
  }
}
