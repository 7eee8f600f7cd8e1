#include <gtest/gtest.h>

#include "tests/updater/UpdaterRig.h"

namespace {

SimPens::Json PenOfThree() {
  SimPens::Json pen = OldPen();
  pen["penlets"] = {
      {{"guid", "a"}, {"name", "Alpha"}, {"version", "1.1"}, {"group", "Notes"}},
      {{"guid", "b"}, {"group", "notes"}},
      {{"guid", "d"}},
      {{"guid", "c"}, {"name", "Paper C"}, {"version", "3"}, {"group", "Notes"}, {"kind", "paper"}},
  };
  return pen;
}

}  // namespace

TEST(Removal, RemovesEveryPenletOfExactlyThatGroup) {
  UpdaterRig rig(AutumnBundle(), PenOfThree());
  EXPECT_EQ(rig.Remove("Notes"), insSuccess);
  EXPECT_EQ(rig.pens().Contents(kPenId), "8.9.14.b1; b 1.0 (notes ); d 1.0 ( )");
  EXPECT_TRUE(rig.LeftNothingOpen());
  ASSERT_EQ(rig.reports().size(), 2U);
  const Report& first = rig.reports()[0];
  EXPECT_EQ(first.packageName + "," + first.guid + "," + first.version + "," + first.action + "," + first.fileType +
                "," + first.groupName,
            "Alpha,a,1.1,Removing,PenApp,Notes");
  const Report& second = rig.reports()[1];
  EXPECT_EQ(second.fileType, "PaperProduct");
  EXPECT_EQ(second.info.doneCount, 2U);
  EXPECT_EQ(second.info.totalCount, 2U);
  EXPECT_EQ(second.info.penId, kPenId);
  EXPECT_EQ(second.packageFile, "(null)");
}

TEST(Removal, EndsAsTheTableSays) {
  const struct {
    const char* name;
    const char* group;
    const char* failing;  // pen function whose first call (of the removal itself) fails
    int number;
    int32_t answer;
    InsResCode result;
    const char* contents;
    const char* logged;
  } rows[] = {
      {"no such group", "Office", "", 0, 0, insSuccess, "a;b;d;c", "-Ret=0, penHandle="},
      {"an empty name", "", "", 0, 0, insSuccess, "a;b;c", "-Ret=0, penHandle="},
      {"no name", nullptr, "", 0, 0, insSuccess, "a;b;d;c", "Remove: No group name, nothing is removed. penHandle="},
      {"one resists", "Notes", "pcUninstallPenlet", 1, 0, insSuccess, "a;b;d", "Unable remove penlet Alpha. pcRet=115"},
      {"the host stops", "Notes", "", 0, 1, insAborted, "b;d;c", "-Ret=-2, penHandle="},
      {"no channel", "Notes", "pcStartObex", 1, 0, insPenFailure, "a;b;d;c", "Unable start pen connection. pcRet=115"},
      {"no id", "Notes", "pcGetPenId", 2, 0, insPenFailure, "a;b;d;c", "Remove: Unable get penId, penHandle="},
      {"no list", "Notes", "pcGetPenletInfo", 1, 0, insPenFailure, "a;b;d;c", "Unable get penlet list. pcRet=115"},
      {"no count", "Notes", "pcGetPenletCount", 1, 0, insPenFailure, "a;b;d;c", "Unable count penlet list. pcRet=115"},
      {"unreadable in the second pass", "Notes", "pcGetPenletItem", 5, 0, insSuccess, "a;b;d", "-Ret=0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    UpdaterRig rig(AutumnBundle(), PenOfThree());
    int seen = 0;
    rig.pens().OnCall([&](int32_t, const std::string& called, int32_t) {
      return called == row.failing && ++seen == row.number ? int32_t{pbErrRefused} : 0;
    });
    rig.AnswerWith([&](const Report&) { return row.answer; });
    EXPECT_EQ(rig.Remove(row.group), row.result);
    std::string left;
    const SimPens::Json pen = rig.pens().Pen(kPenId);
    for (const auto& penlet : pen.at("penlets")) {
      left += (left.empty() ? "" : ";") + penlet.at("guid").get<std::string>();
    }
    EXPECT_EQ(left, row.contents);
    EXPECT_EQ(rig.Logged(row.logged).empty(), false);
    EXPECT_TRUE(rig.LeftNothingOpen());
    if (row.failing == std::string("pcUninstallPenlet")) {
      EXPECT_EQ(rig.reports()[0].info.result, insPenFailure);
      EXPECT_EQ(rig.reports()[1].info.result, insSuccess);
    }
  }
}

TEST(Removal, NeedsNoCallback) {
  UpdaterRig rig(AutumnBundle(), PenOfThree());
  rig.TakeNoReports();
  EXPECT_EQ(rig.Remove("Notes"), insSuccess);
  EXPECT_EQ(rig.pens().Contents(kPenId), "8.9.14.b1; b 1.0 (notes ); d 1.0 ( )");
}
