#include <gtest/gtest.h>

#include <thread>

#include "tests/updater/UpdaterRig.h"

TEST(Reports, TellWhereTheRunIs) {
  UpdaterRig rig;
  rig.pens().Set(kPenId, "tick-size", "16");
  ASSERT_EQ(rig.Install(), insSuccess);
  uint64_t doneBefore = 0;
  for (const Report& report : rig.reports()) {
    const PenUpdateProgressCallbackInfo& info = report.info;
    EXPECT_EQ(info.penId, kPenId);
    EXPECT_LE(info.itemDone, info.itemTotal);
    EXPECT_GE(info.doneCount, doneBefore);
    EXPECT_LE(info.doneCount + info.itemTotal, info.totalCount);
    EXPECT_EQ(info.propertyCount, 0) << "progress reports carry the properties without their number";
    EXPECT_EQ(report.bundleFile, rig.bundle().path());
    EXPECT_EQ(report.packageFile.substr(0, 5), "/tmp/");
    doneBefore = info.doneCount;
  }
  const Report& last = rig.reports().back();
  EXPECT_EQ(last.info.doneCount + last.info.itemTotal, last.info.totalCount);
  EXPECT_GT(rig.reports().size(), 12U);
  const auto writer = std::find_if(rig.reports().begin(), rig.reports().end(),
                                   [](const Report& report) { return report.guid == "writer"; });
  ASSERT_NE(writer, rig.reports().end());
  EXPECT_EQ(writer->packageName, "Writer");
  EXPECT_EQ(writer->version, "3.1.0");
  EXPECT_EQ(writer->action, "Install");
  EXPECT_EQ(writer->fileType, "PenApp");
  EXPECT_EQ(writer->groupName, "Notes");
  EXPECT_EQ(writer->info.transferOrder, 20);
  EXPECT_NE(writer->info.properties, nullptr);
  EXPECT_NEAR(static_cast<double>(writer->info.startTime), static_cast<double>(rig.pens().clock().Seconds()), 5);
}

TEST(Reports, AnErrorCarriesItsCodeAndTheProperties) {
  TestBundleOptions options = AutumnBundle();
  options.groups[1].packages[0].content = "no application";
  UpdaterRig rig(options);
  std::string properties;
  rig.AnswerWith([&](const Report& report) -> int32_t {
    if (report.info.result == 0) return 0;
    for (int32_t i = 0; i < report.info.propertyCount; ++i) {
      properties += std::string(report.info.properties[i].name) + "=" + report.info.properties[i].value + ";";
    }
    return 1;
  });
  EXPECT_EQ(rig.Install(insFlagApps), insAppFailed);
  const Report& error = rig.reports().back();
  EXPECT_EQ(error.info.result, insAppFailed);
  EXPECT_EQ(error.guid, "writer");
  EXPECT_EQ(error.info.itemDone + error.info.itemTotal, 0U);
  EXPECT_EQ(properties, "Audience=everyone;Language=en & sv;");
}

TEST(Reports, ComeFromAThreadOfThePenLibraryToo) {
  UpdaterRig rig;
  rig.pens().Set(kPenId, "own-thread", "true");
  rig.pens().Set(kPenId, "stray-progress", "true");
  rig.pens().Set(kPenId, "tick-size", "8");
  int elsewhere = 0;
  rig.AnswerWith([&, here = std::this_thread::get_id()](const Report&) {
    elsewhere += std::this_thread::get_id() != here;
    return 0;
  });
  EXPECT_EQ(rig.Install(), insSuccess);
  EXPECT_EQ(rig.pens().Contents(kPenId), kInstalled);
  EXPECT_GT(elsewhere, 0);
}

TEST(Reports, WithoutAPenTheDesktopPackagesAreOffered) {
  TestBundleOptions options = AutumnBundle();
  options.groups[1].packages[1].fileType = "Sticker";
  const struct {
    const char* name;
    const char* group;
    int32_t answerToErrors;
    InsResCode result;
    const char* logged;
  } rows[] = {
      {"recognised by the host", nullptr, 0, insSuccess, "Perform notify non pen packages."},
      {"not recognised", "Notes", 1, insUnknownPackage, "Unrecognized item error, code=0. Pak=notebook"},
      {"none in the group", "System", 0, insNoResource, "Not found non pen packages, group \"System\""},
  };
  for (const auto& row : rows) {
    UpdaterRig rig(options);
    rig.penHandle() = 0;
    rig.AnswerWith([&](const Report& report) { return report.info.result != 0 ? row.answerToErrors : 0; });
    EXPECT_EQ(rig.Install(insFlagApps, row.group), row.result) << row.name;
    EXPECT_EQ(rig.Logged(std::string("NotifyNonPenPackages: ") + row.logged).size(), 1U) << row.name;
    EXPECT_TRUE(rig.pens().Calls().empty()) << "no pen is touched";
    if (row.result != insNoResource) {
      EXPECT_EQ(rig.reports().back().fileType, "Sticker") << row.name;
    }
  }
}
