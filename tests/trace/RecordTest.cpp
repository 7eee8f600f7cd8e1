// The recording library in front of pen libraries, in hosts of all kinds.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "tests/support/SimPens.h"
#include "tests/support/TestBundle.h"
#include "tests/trace/TraceRig.h"

namespace {

namespace fs = std::filesystem;
using trace::Json;
using trace::Recorded;
using trace::Recording;

Json Parse(const char* text) {
  return Json::parse(text);
}

// The first call of the function that began as `in` says, in part.
const Recorded* Find(const Recording& recording, const std::string& function, const Json& in) {
  const auto found = std::find_if(recording.calls.begin(), recording.calls.end(),
                                  [&](const Recorded& call) { return call.function == function && call.in == in; });
  return found == recording.calls.end() ? nullptr : &*found;
}

std::string InList(const Recording& recording) {
  std::string text;
  for (const Recorded& call : recording.calls) text += call.function + " " + call.in.dump() + "\n";
  return text;
}

size_t CountOf(const Recording& recording, const std::string& function) {
  return static_cast<size_t>(std::count_if(recording.calls.begin(), recording.calls.end(), [&](const Recorded& call) {
    return call.function == function && call.hasEnded;
  }));
}

}  // namespace

TEST(Record, HoldsAllFunctionsWithArgumentsAndAnswers) {
  TraceRig rig;
  SimPens pens;
  pens.Add({{"id", "0x2a"},
            {"name", "Ada's"},
            {"type", 2},
            {"firmware", "8.9.14.b1"},
            {"penlets", {{{"guid", "clock"}, {"version", "1.0"}, {"group", "Office"}, {"groupVersion", "2.0"}}}}});
  const int32_t handle = pens.HandleOf(0x2a);
  const std::string app = rig.folder().Write("app", PenAppContent("draw", "1.0"));
  const std::string firmware = rig.folder().Write("firmware", FirmwareContent("8.9.15.b2"));
  const Recording recording = rig.Record({"all", app, firmware}, {{"TESSVIK_SIM_DIR", pens.folder().path()}});
  const auto file = [](const std::string& path) {
    return R"("file":")" + path + R"(","bytes":)" + std::to_string(fs::file_size(path));
  };
  const struct {
    const char* function;
    bool takesPen;
    std::string in;
    int64_t result;
    std::string out;
  } rows[] = {
      {"pcGetPenHandles", false, R"({"capacity":20})", 1, R"({"handles":[)" + std::to_string(handle) + "]}"},
      {"pcGetPenId", true, R"({"nameSize":100})", 0, R"({"id":"0x2a","name":"Ada's"})"},
      {"pcGetPenId", true, R"({"nameSize":0,"id":null,"name":null})", pbErrArgument, "{}"},
      {"pcGetPenType", true, R"({"channel":0,"reserved":0})", 0, R"({"type":65538})"},
      {"pcGetPenState", true, R"({"channel":0,"reserved":0})", 0, R"({"state":1})"},
      {"pcEnumeratePen", true, "{}", 0, "{}"},
      {"pcRegisterVolatile", false, R"({"name":"Install","id":"0x2a"})", 0, "{}"},
      {"pcUnRegisterVolatile", false, R"({"name":"Install","id":"0x2a"})", 0, "{}"},
      {"pcStartObex", true, R"({"timeout":30000})", 0, R"({"channel":1})"},
      {"pcGetPenInfo", true, R"({"channel":1,"bufferSize":8,"progress":true})", 0, "{}"},
      {"pcGetPenletInfo", true, R"({"channel":1,"bufferSize":0,"buffer":null,"progress":true})", 0, "{}"},
      {"pcGetVersionInfo", true, "{}", 0, R"({"version":"12-34-080914","suffix":"b1"})"},
      {"pcGetPenletCount", true, "{}", 0, R"({"count":1})"},
      {"pcGetPenletItem", true, R"({"index":0})", 0,
       R"({"guid":"clock","name":"clock","displayName":"clock","version":"1.0","build":0,"present":1,"group":"Office",)"
       R"("groupVersion":"2.0","firstId":0,"secondId":0})"},
      {"pcInstallPenlet", true,
       R"({"channel":1,"reserved":9,"progress":true,)" + file(app) +
           R"(,"subject":"the subject","signature":"c2lnbmF0dXJl"})",
       0, "{}"},
      {"pcSetPenletAttrib", true,
       R"({"channel":1,"guid":"draw","count":2,"attributes":[{"number":2,"value":"Art \u00e4\n\"\\"},)"
       R"({"number":3,"value":"1.5"}]})",
       0, "{}"},
      {"pcUninstallPenlet", true, R"({"channel":1,"guid":"draw"})", 0, "{}"},
      {"pcUninstallPenlet", true, R"({"channel":1,"guid":null})", pbErrArgument, "{}"},
      {"pcStopObex", false, R"({"channel":1})", 0, "{}"},
      {"pcDfuDetach", true, R"({"reserved1":0,"reserved2":0})", 0, "{}"},
      {"pcDfuDownload", true, R"({"reserved":0,"progress":false,)" + file(firmware) + "}", pbErrNotDownloadMode, "{}"},
  };
  std::set<std::string> functions;
  for (const auto& row : rows) {
    const Recorded* call = Find(recording, row.function, Parse(row.in.c_str()));
    ASSERT_TRUE(call) << row.function << row.in << " is not in\n" << InList(recording);
    EXPECT_EQ(call->pen, row.takesPen ? handle : 0) << row.function;
    EXPECT_EQ(call->result, row.result) << row.function << row.in;
    EXPECT_EQ(call->out, Parse(row.out.c_str())) << row.function;
    EXPECT_TRUE(call->hasEnded && call->within == 0 && call->thread == call->process) << row.function;
    functions.insert(row.function);
  }
  EXPECT_EQ(functions.size(), 19U);
  ASSERT_EQ(recording.recorders.size(), 1U);
  EXPECT_EQ(recording.recorders[0].program, LINKED_HOST);
  EXPECT_TRUE(recording.HasSimulatedPens(recording.calls[0].process));
  EXPECT_EQ(
      trace::TextOf(Find(recording, "pcSetPenletAttrib", Parse(rows[15].in.c_str()))->in["attributes"][0], "value"),
      "Art \xe4\n\"\\")
      << "bytes come back as they were";
}

TEST(Record, ChangesNoAnswer) {
  TraceRig rig;
  const std::string mine = rig.folder().Write("mine", "my novel\n");
  fs::create_directories(rig.folder() / "folder");
  fs::create_symlink("/nowhere/at/all", rig.folder() / "dangling");
  const struct {
    const char* name;
    std::vector<std::string> arguments;
    std::string file;
    bool isPiped = false;  // a file of its own would be limited too
  } rows[] = {
      {"recorded", {LINKED_HOST, "all"}, rig.folder() / "a"},
      {"off", {LINKED_HOST, "all"}, ""},
      {"in a missing folder", {LINKED_HOST, "all"}, rig.folder() / "no/such/folder/trace"},
      {"a folder", {LINKED_HOST, "all"}, rig.folder() / "folder"},
      {"a dangling link", {LINKED_HOST, "all"}, rig.folder() / "dangling"},
      {"a device", {LINKED_HOST, "all"}, "/dev/full"},
      {"another's file", {LINKED_HOST, "all"}, mine},
      {"a name too long", {LINKED_HOST, "all"}, std::string(6000, 'x')},
      {"no room at all", {LINKED_HOST, "limited", "0"}, rig.folder() / "b", true},
      {"little room", {LINKED_HOST, "limited", "1500"}, rig.folder() / "c", true},
      {"a library that comes and goes", {LOADING_HOST, "all"}, rig.folder() / "d"},
      {"transfer", {LINKED_HOST, "ticks", "5000"}, rig.folder() / "e"},
      {"stopped transfer", {LINKED_HOST, "stop", "70"}, rig.folder() / "f"},
      {"calls from progress", {LINKED_HOST, "calls", "5"}, rig.folder() / "g"},
      {"fork", {LINKED_HOST, "fork"}, rig.folder() / "h"},
  };
  for (const auto& row : rows) {
    const ProgramResult alone = rig.Run(row.arguments, {}, false, row.isPiped);
    const ProgramResult recorded = rig.Run(row.arguments, {{"TESSVIK_TRACE", row.file}}, true, row.isPiped);
    EXPECT_EQ(recorded.out, alone.out) << row.name;
    EXPECT_EQ(recorded.err, alone.err) << row.name;
    EXPECT_EQ(recorded.status, alone.status) << row.name;
    EXPECT_EQ(alone.status, 0) << row.name << alone.err;
  }
  EXPECT_EQ(ReadWholeFile(mine), "my novel\n");
  EXPECT_LE(fs::file_size(rig.folder() / "c"), 1500U);
  EXPECT_EQ(CountOf(trace::ReadRecordingFile(rig.folder() / "d"), "pcDfuDownload"), 2U);
}

TEST(Record, LeavesFilesOfAHostAlone) {
  TraceRig rig;
  const std::string own = rig.folder() / "own";
  const Recording recording = rig.Record({"close", own});
  EXPECT_EQ(ReadWholeFile(own), "") << "the host's file took the number of the trace";
  EXPECT_EQ(CountOf(recording, "pcStopObex"), 2U);
}

TEST(Record, TellsCallsApart) {
  TraceRig rig;
  const Recording inner = rig.Record({"all"});
  const auto within =
      std::find_if(inner.calls.begin(), inner.calls.end(), [](const Recorded& call) { return call.within != 0; });
  ASSERT_NE(within, inner.calls.end()) << "the odd library calls pcGetPenState in pcGetPenInfo";
  EXPECT_EQ(within->function, "pcGetPenState");
  const auto outer = std::find_if(inner.calls.begin(), inner.calls.end(),
                                  [&](const Recorded& call) { return call.number == within->within; });
  EXPECT_EQ(outer->function, "pcGetPenInfo");

  TraceRig forked;
  const Recording processes = forked.Record({"fork"});
  EXPECT_EQ(processes.recorders.size(), 2U);
  EXPECT_EQ(processes.calls.size(), 3U);
  EXPECT_NE(processes.calls[1].process, processes.calls[0].process);

  TraceRig busy;
  const Recording threads = busy.Record({"threads", "500"});
  std::set<int64_t> results;
  for (const Recorded& call : threads.calls) results.insert(call.result);
  EXPECT_LE(results.size(), 2000U);
  EXPECT_GE(results.size() + static_cast<size_t>(threads.lost), 2000U) << "a lost line is of one call at most";
  EXPECT_EQ(threads.damaged, 0);
}

TEST(Record, HoldsABoundedChoiceOfProgress) {
  TraceRig rig;
  const Recording recording = rig.Record({"ticks", "100000"});
  const Recorded& call = recording.calls.at(0);
  EXPECT_EQ(call.summary["count"], 100000);
  EXPECT_EQ(call.summary["done"], 100000);
  EXPECT_LE(call.ticks.size(), 64U);
  EXPECT_GE(call.ticks.size(), 10U);
  EXPECT_EQ(call.ticks[0].done, 1U);

  TraceRig stopped;
  const Recorded stop = stopped.Record({"stop", "70"}).calls.at(0);
  EXPECT_EQ(stop.result, 123);
  EXPECT_EQ(stop.ticks.back().number, 70) << "the tick that asked to stop";
  EXPECT_EQ(stop.ticks.back().answer, 3);
}

TEST(Record, HoldsTheCallThatNeverEnded) {
  TraceRig rig;
  const Recording recording = rig.Record({"kill", "3"});
  ASSERT_EQ(recording.calls.size(), 1U);
  EXPECT_EQ(recording.calls[0].function, "pcInstallPenlet");
  EXPECT_FALSE(recording.calls[0].hasEnded);
  EXPECT_EQ(recording.calls[0].ticks.size(), 2U);
}

TEST(Record, KeepsWithinItsBound) {
  TraceRig rig;
  constexpr const char* kBound = "65536";
  rig.Record({"threads", "2000"}, {{"TESSVIK_TRACE_BYTES", kBound}});
  const Recording recording = rig.Record({"all"}, {{"TESSVIK_TRACE_BYTES", kBound}});
  EXPECT_LE(fs::file_size(rig.file()) + fs::file_size(rig.file() + ".1"), 65536U);
  EXPECT_GT(fs::file_size(rig.file()) + fs::file_size(rig.file() + ".1"), 32768U);
  EXPECT_EQ(std::distance(fs::directory_iterator(rig.folder().path()), {}), 2);
  EXPECT_EQ(CountOf(recording, "pcDfuDownload"), 1U) << "the newest calls are there";
}

// Nothing that a host brings in a version of its own.
TEST(Record, NeedsTheSystemsCLibraryAlone) {
  if (*TRACE_SANITIZED) GTEST_SKIP() << "a sanitizer's library is needed too";
  const ProgramResult result =
      RunProgram({"/bin/sh", "-c", "readelf -d " TRACE_LIBRARY " | sed -n 's/.*(NEEDED).*\\[\\(.*\\)\\]/\\1/p'"});
  std::istringstream needed(result.out);
  for (std::string name; std::getline(needed, name);) {
    EXPECT_TRUE(name == "libc.so.6" || name.starts_with("ld-linux")) << name;
  }
  EXPECT_NE(result.out, "");
}
