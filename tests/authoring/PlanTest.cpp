#include "authoring/Plan.h"

#include <gtest/gtest.h>

#include "authoring/Failure.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TestBundle.h"

namespace {

using nlohmann::json;

// A bundle with a package for each way of deciding, for pens of type 1; "other" is for pens of type 2.
TestBundleOptions Everything() {
  TestGroup games{.name = "Games", .version = "2.0", .penTypes = "1", .folder = "Apps"};
  games.packages = {FirmwarePackage("8.9.15.b2", 1),          PenAppPackage("new", "New", "1.0", 0, 2),
                    PenAppPackage("moved", "M", "1.0", 0, 3), PenAppPackage("older", "O", "1.2", 0, 4),
                    PenAppPackage("build", "B", "1.2", 7, 5), PenAppPackage("same", "S", "1.2", 1, 6),
                    PaperPackage("newer", "N", "1.2", 0, 7),  PenAppPackage("group", "G", "9.0", 0, 8)};
  TestGroup other{.name = "Other", .penTypes = "2"};
  other.packages = {PenAppPackage("other", "Other", "1.0", 0, 9)};
  return {.groups = {games, other}};
}

json Penlet(const char* guid, const char* version, int build, const char* group, const char* groupVersion) {
  return {{"guid", guid},   {"name", guid},   {"version", version},
          {"build", build}, {"group", group}, {"groupVersion", groupVersion},
          {"kind", "app"}};
}

json Pen() {
  json penlets{Penlet("moved", "1.0", 0, "Elsewhere", "2.0"), Penlet("older", "1.1", 0, "Games", "2.0"),
               Penlet("build", "1.2", 6, "Games", "2.0"),     Penlet("same", "1.2", 1, "Games", "1.0"),
               Penlet("newer", "1.3", 0, "Games", "2.0"),     Penlet("group", "1.0", 0, "Games", "2.1")};
  return {{"id", "0x01"},      {"handle", 1},       {"name", "Blue"},
          {"type", 1},         {"state", "normal"}, {"firmware", "8.9.14.b1"},
          {"penlets", penlets}};
}

class PlanTest : public testing::Test {
 protected:
  std::string PenFile(const json& pens) {
    return m_folder.Write("pen.json", json{{"schema", 1}, {"pens", pens}}.dump());
  }

  // The plan of the bundle for one pen, as the program prints it.
  json PlanOf(const TestBundleOptions& options, const json& pen) {
    TestBundle bundle(options);
    ProgramResult result =
        RunProgram({QUARVEL_BUNDLE_PROGRAM, "plan", bundle.path(), "--pen", PenFile(json::array({pen})), "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    return result.status == 0 ? json::parse(result.out)["pens"][0] : json();
  }

  TempFolder m_folder;
};

json Find(const json& plan, const std::string& guid) {
  for (const json& package : plan["packages"]) {
    if (package["guid"] == guid) return package;
  }
  return json();
}

}  // namespace

TEST_F(PlanTest, GivesEachPackageItsActionAndReason) {
  struct Row {
    const char* guid;
    const char* action;
    const char* reason;
    bool raisesGroup = false;
  };
  const Row kRows[] = {
      {"fw-8.9.15.b2", "install", "the pen has the older version 8.9.14.b1"},
      {"new", "install", "the pen does not have it"},
      {"moved", "install", "the pen has it in the group \"Elsewhere\""},
      {"older", "install", "the pen has the older version 1.1"},
      {"build", "install", "the pen has the older version 1.2 (6)"},
      {"same", "skip", "the pen has the same version", true},
      {"newer", "skip", "the pen has the newer version 1.3"},
      {"group", "skip", "the pen has its group in the newer version 2.1"},
      {"other", "skip", "its group is not for pens of type 1"},
  };
  json plan = PlanOf(Everything(), Pen());
  EXPECT_EQ(plan["result"], insSuccess);
  ASSERT_EQ(plan["packages"].size(), std::size(kRows));
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.guid);
    json package = Find(plan, row.guid);
    EXPECT_EQ(package["action"], row.action);
    EXPECT_EQ(package["reason"], row.reason);
    EXPECT_EQ(package["raisesGroup"], row.raisesGroup);
  }
}

TEST_F(PlanTest, LeavesApplicationsOpenForAPenInDownloadMode) {
  json pen = Pen();
  pen["firmware"] = pen["penlets"] = nullptr;
  pen["state"] = "download";
  json plan = PlanOf(Everything(), pen);
  EXPECT_EQ(Find(plan, "fw-8.9.15.b2")["action"], "install");
  EXPECT_EQ(Find(plan, "same")["action"], "undecided");
  EXPECT_EQ(Find(plan, "other")["action"], "skip");

  pen["id"] = nullptr;
  plan = PlanOf(Everything(), pen);
  EXPECT_EQ(Find(plan, "fw-8.9.15.b2")["action"], "fail") << "no install begins on a pen that tells no id";
}

TEST_F(PlanTest, TellsWhenTheInstallHasNothingToDo) {
  TestBundleOptions options = Everything();
  options.groups[0].packages = {PaperPackage("newer", "N", "1.2", 0, 7), PenAppPackage("file", "F", "1.0", 0, 8)};
  options.groups[0].packages[1].fileType = "Notes";
  json current = PlanOf(options, Pen());
  EXPECT_EQ(current["result"], insNothingToDo);
  EXPECT_EQ(Find(current, "file")["action"], "skip");
  json foreign = Pen();
  foreign["type"] = 3;
  EXPECT_EQ(PlanOf(options, foreign)["result"], insNoResource);
}

TEST_F(PlanTest, ForeseesWhatEndsTheInstall) {
  TestBundleOptions options = Everything();
  options.groups[0].packages[0].transferOrder = "3";
  options.groups[0].packages[1].fileType = "Notes";
  json plan = PlanOf(options, Pen());
  EXPECT_EQ(Find(plan, "new")["action"], "fail");
  EXPECT_EQ(Find(plan, "fw-8.9.15.b2")["action"], "fail");
}

TEST_F(PlanTest, ShowsEveryPenOfTheFileToPeople) {
  TestBundle bundle(Everything());
  json second = Pen();
  second["name"] = "Red";
  ProgramResult result =
      RunProgram({QUARVEL_BUNDLE_PROGRAM, "plan", bundle.path(), "--pen", PenFile(json::array({Pen(), second}))});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("Pen 0x01 \"Red\", type 1, firmware 8.9.14.b1: the bundle brings something new.\n"),
            std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("the pen has the same version; its group's version is raised\n"), std::string::npos);
}

TEST_F(PlanTest, RefusesWhatIsNoListOfPens) {
  json unread = Pen();
  unread["penlets"] = nullptr;
  for (const std::string& text : {std::string("{"), std::string("[]"), std::string("{\"pens\":[{}]}"),
                                  json{{"pens", json::array()}}.dump(), json{{"pens", json::array({unread})}}.dump()}) {
    std::string file = m_folder.Write("pen.json", text);
    EXPECT_THROW(authoring::ReadPens(file), authoring::Failure) << text;
  }
}
