// quarvel report: what the zip file holds, and what it does not tell.
#include <gtest/gtest.h>
#include <unzip.h>

#include <array>
#include <map>

#include "tests/host/HostRig.h"

namespace {

std::map<std::string, std::string> Members(const std::string& file) {
  std::map<std::string, std::string> members;
  unzFile zip = unzOpen64(file.c_str());
  for (int result = zip ? unzGoToFirstFile(zip) : UNZ_END_OF_LIST_OF_FILE; result == UNZ_OK;
       result = unzGoToNextFile(zip)) {
    std::array<char, 100> name{};
    unz_file_info64 info{};
    unzGetCurrentFileInfo64(zip, &info, name.data(), name.size(), nullptr, 0, nullptr, 0);
    std::string text(static_cast<size_t>(info.uncompressed_size), '\0');
    unzOpenCurrentFile(zip);
    unzReadCurrentFile(zip, text.data(), static_cast<unsigned>(text.size()));
    unzCloseCurrentFile(zip);
    members[name.data()] = text;
  }
  if (zip) unzClose(zip);
  return members;
}

TEST(Report, HoldsTheLastRunAndMasksPenIds) {
  HostRig rig;
  rig.AddPen("0x1122334455667788");
  ASSERT_EQ(rig.Install().status, 0);
  ASSERT_EQ(rig.Quarvel({"report", "-o", "DIR/report.zip"}).status, 0);
  auto members = Members(rig.folder() / "report.zip");
  for (const char* name : {"versions.json", "pens.json", "run.json", "events.jsonl", "quarvel.log", "bundle.json",
                           "update.xml", "bom.xml"}) {
    EXPECT_FALSE(members[name].empty()) << name;
  }
  for (const auto& [name, text] : members) {
    EXPECT_FALSE(Has(text, "1122334455667788")) << name;
    EXPECT_FALSE(Has(text, "1234605616436508552")) << name << ": the id as a decimal number";
  }
  EXPECT_EQ(Json::parse(members["pens.json"]).at("pens").at(0).at("id"), "pen-1");
  EXPECT_EQ(EventsOf(members["events.jsonl"], "result").size(), 1U);
  EXPECT_PRED2(Has, members["quarvel.log"], "insStartInstall");

  EXPECT_EQ(Json::parse(members["pens.json"]).at("pens").at(0).at("name"), "name-1");
  EXPECT_FALSE(Has(members["run.json"], rig.path())) << members["run.json"];
  ASSERT_EQ(rig.Quarvel({"report", "-o", "DIR/report.zip"}).status, 2) << "nothing is overwritten unasked";

  ASSERT_EQ(rig.Quarvel({"report", "-o", "DIR/full.zip", "--full"}).status, 0);
  EXPECT_PRED2(Has, Members(rig.folder() / "full.zip")["pens.json"], "0x1122334455667788");
}

// As recorded, and on today's library: an install that went well, and one in which a call failed in its middle.
TEST(Report, HoldsTheRunsTraceWhichCanBePlayedAgain) {
  const struct {
    const char* name;
    Words fault;
    const char* words;
  } rows[] = {{"went well", {}, "Built pen-1: type 1, firmware 8.9.14.b1, 1 applications"},
              {"failed",
               {"fault", "pcSetPenletAttrib", "--call", "2", "--error", "4711", "--pen", "0x1122334455667788"},
               "pcSetPenletAttrib for pen-1 failed with 4711; the pen was given that failure"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    HostRig rig(FirmwareBundle());
    rig.AddPen("0x1122334455667788");
    if (!row.fault.empty()) rig.Sim(row.fault);
    EXPECT_EQ(rig.Install().status == 0, row.fault.empty());
    ASSERT_EQ(rig.Quarvel({"report", "-o", "DIR/report.zip"}).status, 0);
    EXPECT_PRED2(Has, Members(rig.folder() / "report.zip")["trace.jsonl"], "pcInstallPenlet");
    EXPECT_FALSE(Has(Members(rig.folder() / "report.zip")["trace.jsonl"], "1122334455667788"));
    ProgramResult replay = RunProgram({TESSVIK_SIM_PROGRAM, "replay", rig.folder() / "report.zip"});
    EXPECT_EQ(replay.status, 0) << replay.err;
    EXPECT_PRED2(Has, replay.out, row.words);
    EXPECT_PRED2(Has, replay.out, " 0 with another outcome");
  }
}

TEST(Report, TakesTheTraceFromWhereItWasRecorded) {
  HostRig rig;
  rig.AddPen();
  ASSERT_EQ(rig.Install({"--all", "--trace", "DIR/mine.jsonl"}).status, 0);
  EXPECT_PRED2(Has, ReadWholeFile(rig.folder() / "mine.jsonl"), "pcInstallPenlet");
  ASSERT_EQ(rig.Quarvel({"report", "-o", "DIR/report.zip", "--full"}).status, 0);
  EXPECT_EQ(Members(rig.folder() / "report.zip")["trace.jsonl"], ReadWholeFile(rig.folder() / "mine.jsonl"));
  ProgramResult refused = rig.Install({"--all", "--trace", "BUNDLE"});
  EXPECT_EQ(refused.status, 2);
  EXPECT_PRED2(Has, refused.err, "the file is there and is no trace");
}

TEST(Report, IsMadeOfAnyKeptRun) {
  HostRig rig;
  rig.AddPen("0x2a", {"free-space=0"});
  ASSERT_EQ(rig.Quarvel({"report", "-o", "DIR/r.zip", "--failed"}).status, 2) << "none has failed yet";
  ASSERT_EQ(rig.Install({"--all", "--log", "DIR/own.log"}).status, 5);
  rig.Sim({"set", "0x2a", "free-space=1000000"});
  ASSERT_EQ(rig.Install({"--all", "--log", "DIR/own.log"}).status, 0);
  const struct {
    Words chosen;
    int run;
    const char* log;
  } rows[] = {{{}, 2, "-Ret=0, "},
              {{"--failed"}, 1, "-Ret=-201, "},
              {{"--run", "1"}, 1, "-Ret=-201, "},
              {{"--run", "last"}, 2, "-Ret=0, "}};
  for (const auto& row : rows) {
    Words words{"report", "-o", "DIR/r.zip", "--force"};
    words.insert(words.end(), row.chosen.begin(), row.chosen.end());
    ProgramResult result = rig.Quarvel(words);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_PRED2(Has, result.out, "of run " + std::to_string(row.run));
    auto members = Members(rig.folder() / "r.zip");
    EXPECT_EQ(Json::parse(members["run.json"]).at("run"), row.run);
    EXPECT_PRED2(Has, members["quarvel.log"], row.log);
  }
  ProgramResult none = rig.Quarvel({"report", "-o", "DIR/r.zip", "--run", "9"});
  EXPECT_EQ(none.status, 2);
  EXPECT_PRED2(Has, none.err, "There is no run 9 in the history");
}

TEST(Report, IsOfUseBeforeAnyRun) {
  HostRig rig;
  ProgramResult result = rig.Quarvel({"report", "-o", "DIR/report.zip"});
  EXPECT_EQ(result.status, 0);
  EXPECT_PRED2(Has, result.out, "there is no run to report");
  EXPECT_EQ(Members(rig.folder() / "report.zip").size(), 2U);
}

}  // namespace
