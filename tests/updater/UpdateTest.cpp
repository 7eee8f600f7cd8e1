#include <gtest/gtest.h>

#include <map>

#include "tests/updater/UpdaterRig.h"

namespace {

constexpr uint32_t kBoth = insFlagFirmware | insFlagApps;

std::vector<std::string> Names(const std::vector<Report>& reports, bool finishedOnly) {
  std::vector<std::string> names;
  for (const Report& report : reports) {
    if (!finishedOnly || report.info.itemDone == report.info.itemTotal) names.push_back(report.packageName);
  }
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

}  // namespace

TEST(Update, InstallsWhatThePenLacksAndRaisesTheGroupOfWhatItKeeps) {
  UpdaterRig rig;
  const int32_t before = rig.penHandle();
  EXPECT_EQ(rig.Install(), insSuccess);
  EXPECT_EQ(rig.pens().Contents(kPenId), kInstalled);
  EXPECT_NE(rig.penHandle(), before);
  EXPECT_EQ(rig.penHandle(), rig.pens().HandleOf(kPenId));
  EXPECT_TRUE(rig.LeftNothingOpen());
  EXPECT_EQ(rig.pens().Calls().back(), "pcEnumeratePen") << "the pen came back under another handle";
  EXPECT_EQ(Names(rig.reports(), true),
            (std::vector<std::string>{"Firmware 8.9.15.b2", "Settings", "Writer", "Notebook A5"}));

  EXPECT_EQ(rig.Install(), insNothingToDo) << "again";
  EXPECT_TRUE(rig.reports().empty());
  EXPECT_EQ(rig.log().Lines().back(), "insStartInstallFile: -Ret=1, penHandle=" + std::to_string(rig.penHandle()) +
                                          ", bundleFile=" + rig.bundle().path());
}

TEST(Update, EndsWithWhatCameBackAfterTheDownload) {
  UpdaterRig other;
  other.pens().Set(kPenId, "returns-as", "0x77");
  EXPECT_EQ(other.Install(), insPenFailure) << "the pen of the run is gone, so the last call, about it, fails";
  EXPECT_TRUE(other.LeftNothingOpen());
  UpdaterRig newer;
  newer.pens().Set(kPenId, "returns-with", "8.9.16.c1");
  EXPECT_EQ(newer.Install(), insVerifyPenFailed);
  EXPECT_TRUE(newer.LeftNothingOpen());
}

TEST(Update, TakesUpAPenThatBeginsInDownloadMode) {
  TestBundleOptions options = AutumnBundle();
  options.groups[0].penTypes = "0";
  SimPens::Json pen = OldPen();
  pen["type"] = 2;
  pen["mode"] = "download";
  UpdaterRig rig(options, pen);
  EXPECT_EQ(rig.Install(), insSuccess);
  EXPECT_EQ(rig.pens().Contents(kPenId), kInstalled);
  const std::vector<std::string> calls = rig.pens().Calls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "pcDfuDetach"), 0);

  UpdaterRig anonymous(AutumnBundle(), [] {
    SimPens::Json other = OldPen();
    other["mode"] = "download";
    return other;
  }());
  EXPECT_EQ(anonymous.Install(), insPenFailure) << "a pen of type 1 cannot tell its id there";
}

TEST(Update, ForceInstallsEverythingWithoutLooking) {
  UpdaterRig rig;
  ASSERT_EQ(rig.Install(), insSuccess);
  const auto count = [&](const char* function) {
    const std::vector<std::string> calls = rig.pens().Calls();
    return std::count(calls.begin(), calls.end(), function);
  };
  ASSERT_EQ(count("pcInstallPenlet"), 3);
  EXPECT_EQ(rig.Install(kBoth | insFlagForce), insSuccess);
  EXPECT_EQ(count("pcInstallPenlet"), 6);
  EXPECT_EQ(count("pcDfuDownload"), 2);
  EXPECT_EQ(rig.pens().Contents(kPenId), kInstalled);
  EXPECT_TRUE(rig.Logged("CheckToInstall").empty());
}

TEST(Update, TakesOnlyWhatTheFlagsAndTheGroupSelect) {
  const struct {
    uint32_t flags;
    const char* group;
    InsResCode result;
    const char* contents;
  } rows[] = {
      {insFlagFirmware, nullptr, insSuccess, "8.9.15.b2; settings 1.9 (System 1.8); sketch 2.2 (Notes 3.0)"},
      {insFlagApps, "notes", insSuccess,
       "8.9.14.b1; settings 1.9 (System 1.8); sketch 2.2 (Notes 3.1); writer 3.1.0 (Notes 3.1); notebook 1.0 (Notes "
       "3.1)"},
      {kBoth, "missing", insNoResource, "8.9.14.b1; settings 1.9 (System 1.8); sketch 2.2 (Notes 3.0)"},
      {0, nullptr, insNoResource, "8.9.14.b1; settings 1.9 (System 1.8); sketch 2.2 (Notes 3.0)"},
  };
  for (const auto& row : rows) {
    UpdaterRig rig;
    EXPECT_EQ(rig.Install(row.flags, row.group), row.result) << row.flags << (row.group ? row.group : "");
    EXPECT_EQ(rig.pens().Contents(kPenId), row.contents) << row.flags << (row.group ? row.group : "");
  }
}

TEST(Update, LetsTheHostSkipAFailingPackageOrStop) {
  TestBundleOptions options = AutumnBundle();
  options.groups[1].packages[0].content = "no application";  // writer
  UpdaterRig stops(options);
  EXPECT_EQ(stops.Install(), insAppFailed);
  EXPECT_EQ(stops.pens().Contents(kPenId), "8.9.15.b2; settings 2.0.1 (System 2.0); sketch 2.2 (Notes 3.0)");

  UpdaterRig skips(options);
  skips.AnswerWith([](const Report&) { return 0; });
  EXPECT_EQ(skips.Install(), insVerifyPenFailed) << "what was skipped is missed at the end";
  EXPECT_EQ(skips.Logged("Update: Skip Error, code=-201. Pak=writer").size(), 1U);
  EXPECT_EQ(skips.Logged("VerifyPen: Apps (writer").size(), 1U);
  EXPECT_TRUE(skips.LeftNothingOpen());

  UpdaterRig silent(options);
  silent.TakeNoReports();
  EXPECT_EQ(silent.Install(), insAppFailed) << "without a callback every failure is final";
}

TEST(Update, StopsWhenTheHostSaysSo) {
  const std::map<const char*, Answer> answers = {
      {"a non-zero answer", [](const Report& report) { return report.packageName == "Settings"; }},
      {"an abort from inside the callback",
       [](const Report& report) {
         return report.packageName == "Settings" ? insAbort(kPenId) : 0;  // 0: a run was found
       }},
      {"an abort of all",
       [](const Report& report) {
         if (report.packageName == "Settings") insAbortAll();
         return 0;
       }},
      {"an exception",
       [](const Report& report) {
         if (report.packageName == "Settings") throw std::runtime_error("the host's own");
         return 0;
       }},
      {"an exception in an error report",
       [](const Report& report) {
         if (report.info.result != 0) throw 1;
         return 0;
       }},
  };
  for (const auto& [name, answer] : answers) {
    SCOPED_TRACE(name);
    TestBundleOptions options = AutumnBundle();
    if (std::string(name).find("error") != std::string::npos) options.groups[0].packages[1].content = "none";
    UpdaterRig rig(options);
    rig.AnswerWith(answer);
    EXPECT_EQ(rig.Install(), insAborted);
    EXPECT_EQ(rig.pens().Contents(kPenId).find("writer"), std::string::npos);
    EXPECT_TRUE(rig.LeftNothingOpen());
    EXPECT_EQ(insAbort(kPenId), insNotRunning);
  }
}

TEST(Update, AnUnknownKindIsSkippedOrEndsTheRun) {
  TestBundleOptions options = AutumnBundle();
  options.groups[1].packages[1].fileType = "Sticker";
  UpdaterRig skips(options);
  skips.AnswerWith([](const Report&) { return 0; });
  EXPECT_EQ(skips.Install(), insSuccess);
  EXPECT_EQ(skips.Logged("Update: Skip Error, code=-102. Pak=notebook").size(), 1U);
  UpdaterRig stops(options);
  EXPECT_EQ(stops.Install(), insUnknownPackage);
  EXPECT_EQ(stops.Logged("Update: Unrecognized item error, code=0. Pak=notebook").size(), 1U);
  EXPECT_TRUE(stops.LeftNothingOpen());
}

TEST(Update, TakesThePenInDownloadModeThatItSeesFirst) {
  UpdaterRig rig;
  SimPens::Json other = OldPen();
  other["id"] = "0x2b";
  other["mode"] = "download";
  rig.pens().Add(other);
  // Nothing tells the two apart: the other pen gets the firmware, this run's own is left in download mode.
  EXPECT_EQ(rig.Install(insFlagFirmware), insPenFailure);
  EXPECT_EQ(rig.pens().Contents(0x2b).substr(0, 9), "8.9.15.b2");
  EXPECT_EQ(rig.pens().Pen(kPenId).at("mode"), "download");
  EXPECT_TRUE(rig.LeftNothingOpen());
}
