#include <gtest/gtest.h>

#include <map>

#include "tests/updater/UpdaterRig.h"

namespace {

constexpr uint32_t kBoth = insFlagFirmware | insFlagApps;

// Fails the n-th call of one pen function.
SimPens::Hook FailCall(const std::string& function, int number) {
  return [=, seen = 0](int32_t, const std::string& called, int32_t) mutable {
    return called == function && ++seen == number ? int32_t{pbErrRefused} : 0;
  };
}

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

TEST(Update, EndsWithTheCodeAndTheMessageOfTheCallThatFails) {
  const struct {
    const char* function;
    int number;
    InsResCode result;
    const char* logged;
  } rows[] = {
      {"pcGetPenId", 1, insPenFailure, "insStartInstallFile: -Ret=-6, pcRet=115, penHandle="},
      {"pcRegisterVolatile", 1, insPenFailure, ". Unable register install_penId"},
      {"pcGetPenId", 2, insPenFailure, "Update: Unable get penId, penHandle="},
      {"pcGetPenType", 1, insPenFailure, "Update: Unable get pentype, penHandle="},
      {"pcGetPenState", 1, insPenFailure, "Update: Unable get state, penHandle="},
      {"pcStartObex", 1, insPenFailure, "Update: Unable cache pen and penlet information. penHandle="},
      {"pcGetPenInfo", 1, insPenFailure, "Update: Unable cache pen and penlet information. penHandle="},
      {"pcGetPenletInfo", 1, insPenFailure, "Update: Unable cache pen and penlet information. penHandle="},
      {"pcGetVersionInfo", 1, insPenFailure, "Update: Unable cache pen and penlet information. penHandle="},
      {"pcGetPenletCount", 1, insPenFailure, "Update: Unable cache pen and penlet information. penHandle="},
      {"pcGetPenState", 2, insFirmwareFailed, "InstallFW: Unable get penState, penHandle="},
      {"pcDfuDetach", 1, insFirmwareFailed, "InstallFW: Unable to DFUDetach pen, penHandle="},
      {"pcDfuDownload", 1, insFirmwareFailed, "InstallFW: Install firmware failed, penHandle="},
      {"pcStartObex", 2, insPenFailure, "insStartInstallFile: -Ret=-6, penHandle="},
      {"pcInstallPenlet", 1, insAppFailed, "InstallApp: Install app failed, app=settings"},
      {"pcSetPenletAttrib", 1, insAppFailed, "InstallApp: Set app attribute failed, guid=settings, penHandle="},
      {"pcGetPenletInfo", 2, insPenFailure, "UpdateGroupVersion: Unable get penlet list. pcRet=115"},
      {"pcGetPenletCount", 2, insPenFailure, "UpdateGroupVersion: Unable count penlet list. pcRet=115"},
      {"pcGetPenletItem", 3, insPenFailure, "UpdateGroupVersion: Unable get penlet item. pcRet=115"},
      {"pcSetPenletAttrib", 4, insPenFailure,
       "UpdateGroupVersion: Update group attribute for app failed, guid=sketch, name=sketch, penHandle="},
      {"pcGetPenInfo", 2, insPenFailure, "VerifyPen: Unable cache pen and penlet information. penHandle="},
      {"pcUnRegisterVolatile", 1, insPenFailure, "insStartInstallFile: Unable unregister install_penId. pcRet=115"},
      {"pcEnumeratePen", 1, insPenFailure, "insStartInstallFile: Unable EnumeratePen, pcRet=115"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.function) + " " + std::to_string(row.number));
    UpdaterRig rig;
    rig.pens().OnCall(FailCall(row.function, row.number));
    EXPECT_EQ(rig.Install(), row.result);
    EXPECT_EQ(rig.Logged(row.logged).size(), 1U) << row.logged;
    EXPECT_EQ(pbOpenChannels(), 0);
    EXPECT_EQ(pbMarks(), row.function == std::string("pcUnRegisterVolatile") ? 1 : 0);
  }
}

TEST(Update, GivesAPenSixtySecondsToLeaveAndSixtyToReturn) {
  const struct {
    const char *setting, *value;
    InsResCode result;
    int64_t fromSeconds, toSeconds;
  } rows[] = {
      {"leave-time", "59000", insSuccess, 118, 130},
      {"never-leaves", "true", insTimeout, 61, 62},
      {"never-returns", "true", insTimeout, 61, 64},
      {"return-time", "59000", insSuccess, 118, 130},
      // The pen that took the firmware is gone for this run, so reading it anew fails, and that is what is returned.
      {"returns-as", "0x77", insPenFailure, 61, 70},
      {"returns-with", "8.9.16.c1", insVerifyPenFailed, 0, 20},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.setting) + "=" + row.value);
    UpdaterRig rig;
    rig.pens().Set(kPenId, row.setting, row.value);
    const int64_t began = rig.pens().clock().Seconds();
    EXPECT_EQ(rig.Install(), row.result);
    const int64_t took = rig.pens().clock().Seconds() - began;
    EXPECT_GE(took, row.fromSeconds);
    EXPECT_LE(took, row.toSeconds);
    EXPECT_TRUE(rig.LeftNothingOpen());
  }
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
  rig.pens().OnCall([](int32_t, const std::string&, int32_t) { return 0; });
  EXPECT_EQ(rig.Install(kBoth | insFlagForce), insSuccess);
  EXPECT_EQ(Names(rig.reports(), true).size(), 4U);
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

TEST(Update, AsksBeforeAPackageWithABadSignatureAndInstallsItIfToldToGoOn) {
  TestBundleOptions options = AutumnBundle();
  options.editBomXml = [](std::string& bom) { bom.replace(bom.find("writer"), 6, "wrong!"); };
  for (const bool goOn : {false, true}) {
    UpdaterRig rig(options);
    rig.AnswerWith([goOn](const Report& report) { return report.info.result != 0 && !goOn; });
    const char* const certificates[] = {MakeTestIdentity().certPem.c_str()};
    const PenUpdateCfg cfg{insFlagApps, certificates, 1, nullptr};
    int bundle = 0;
    ASSERT_EQ(insLoadBundle(rig.bundle().path().c_str(), &bundle), insSuccess);
    EXPECT_EQ(insVerifyBundle(bundle, &cfg), insNoSignature);
    static std::vector<InsResCode> errors;
    errors.clear();
    const auto onReport = [](int32_t, const PenUpdateProgressCallbackInfo* info, void* go) -> int32_t {
      if (info->result != 0) errors.push_back(info->result);
      return info->result != 0 && !go;
    };
    const InsResCode expected = goOn ? insSuccess : insPackageUnsigned;
    EXPECT_EQ(insStartInstall(&rig.penHandle(), bundle, &cfg, onReport, goOn ? &rig : nullptr), expected);
    EXPECT_EQ(errors, std::vector<InsResCode>{insPackageUnsigned});
    EXPECT_EQ(rig.pens().Contents(kPenId).find("writer") != std::string::npos, goOn);
    EXPECT_EQ(rig.Logged("Update: Skip DRM checking error. Pak=writer").size(), goOn ? 1U : 0U);
    insReleaseBundle(bundle);
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

TEST(Update, ComparesThePenTextForTextAtTheEnd) {
  const struct {
    const char* name;
    std::function<void(TestBundleOptions&)> change;
    const char* logged;
  } rows[] = {
      {"version", [](TestBundleOptions& o) { o.groups[1].packages[0].version = "3.1.0.0"; },
       " Version mismatch. Actual=3.1.0, Expect=3.1.0.0"},
      {"GUID", [](TestBundleOptions& o) { o.groups[1].packages[1].content = PenAppContent("else", "1.0"); },
       " Not Found"},
  };
  for (const auto& row : rows) {
    TestBundleOptions options = AutumnBundle();
    row.change(options);
    UpdaterRig rig(options);
    rig.AnswerWith([](const Report&) { return 0; });
    EXPECT_EQ(rig.Install(), insVerifyPenFailed) << row.name;
    EXPECT_EQ(rig.Logged(row.logged).size(), 1U) << row.name;
  }
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
