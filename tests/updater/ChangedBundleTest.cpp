// A run sends what it checked: what happens to the bundle's folder and certificates while it waits for the pen.
#include <gtest/gtest.h>

#include <filesystem>

#include "authoring/Files.h"
#include "tests/updater/UpdaterRig.h"

namespace {

// Does something when the pen is told to leave the bus: after the firmware's check, before its transfer.
SimPens::Hook WhileThePenIsAway(std::function<void()> work) {
  return [work = std::move(work)](int32_t, const std::string& function, int32_t) {
    if (function == "pcDfuDetach") work();
    return int32_t{0};
  };
}

}  // namespace

TEST(ChangedBundle, IsNotSentWhenItsFileWasChangedAfterItsCheck) {
  for (const bool isSkipped : {false, true}) {
    UpdaterRig rig;
    const std::string image = rig.bundle().extractFolder() + "/System/firmware-8.9.15.b2.bin";
    rig.pens().OnCall(WhileThePenIsAway([&] {
      std::string bytes = authoring::ReadFile(image);
      bytes.back() ^= 1;
      authoring::WriteFile(image, bytes);
    }));
    std::vector<InsResCode> errors;
    rig.AnswerWith([&](const Report& report) {
      if (report.info.result == insSuccess) return 0;
      errors.push_back(report.info.result);
      return isSkipped ? 0 : 1;
    });
    const InsResCode result = rig.Install();
    EXPECT_EQ(errors.at(0), insPackageUnsigned);
    EXPECT_TRUE(isSkipped || result == insPackageUnsigned) << result;
    for (const std::string& call : rig.pens().Calls()) EXPECT_NE(call, "pcDfuDownload") << isSkipped;
    EXPECT_EQ(rig.Logged("Verify: File System/firmware-8.9.15.b2.bin has invalid signature").size(), 1U);
    EXPECT_EQ(rig.Logged("Skip Error, code=-300. Pak=firmware-8.9.15.b2.bin").size(), isSkipped ? 1U : 0U);
    EXPECT_TRUE(rig.LeftNothingOpen());
  }
}

// Another load of the very same file may repair the folder at any time but during a transfer.
TEST(ChangedBundle, IsHeldForEachTransferAlone) {
  const struct {
    const char* after;  // the call is the first one behind this
    const char* call;
    InsResCode loaded;
  } rows[] = {
      {"", "pcDfuDetach", insSuccess},
      {"", "pcDfuDownload", insExtractFailed},
      {"pcDfuDownload", "pcGetPenHandles", insSuccess},
      {"", "pcInstallPenlet", insExtractFailed},
      {"pcInstallPenlet", "pcSetPenletAttrib", insSuccess},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.call) + " after " + row.after);
    UpdaterRig rig;
    const std::string file = rig.bundle().extractFolder() + "/update.xml";
    bool isBehind = !*row.after;
    std::vector<InsResCode> loaded;
    rig.pens().OnCall([&](int32_t, const std::string& function, int32_t) {
      if (isBehind && function == row.call && loaded.empty()) {
        const std::string whole = authoring::ReadFile(file);
        authoring::WriteFile(file, whole + " ");
        int bundle = 0;
        loaded.push_back(insLoadBundle(rig.bundle().path().c_str(), &bundle));
        if (bundle) insReleaseBundle(bundle);
        authoring::WriteFile(file, whole);
      }
      isBehind = isBehind || function == row.after;
      return int32_t{0};
    });
    EXPECT_EQ(rig.Install(), insSuccess);
    EXPECT_EQ(loaded, std::vector{row.loaded});
    EXPECT_EQ(rig.pens().Contents(kPenId), kInstalled);
  }
}

TEST(ChangedBundle, GivesWayToNoOtherBundleOfItsSizeAndTime) {
  UpdaterRig rig;
  // The same bundle with longer firmware, unsigned, brought to the same size and time.
  TestBundleOptions options = AutumnBundle();
  options.replaceMembers["System/firmware-8.9.15.b2.bin"] = FirmwareContent("8.9.15.b2", "forged firmware, longer");
  options.dropMembers = {"Notes/notebook.pen"};
  const TestBundle forged(options);
  ASSERT_TRUE(MakeTwins(rig.bundle(), forged));
  InsResCode loaded = insSuccess;
  rig.pens().OnCall(WhileThePenIsAway([&] { loaded = insLoadBundle(forged.path().c_str(), nullptr); }));
  EXPECT_EQ(rig.Install(), insSuccess);
  EXPECT_EQ(loaded, insExtractFailed);
  EXPECT_EQ(rig.pens().Contents(kPenId), kInstalled);
}

TEST(ChangedBundle, IsCheckedWithTheCertificatesThatTheRunBeganWith) {
  UpdaterRig rig;
  const char* const trusted[] = {MakeTestIdentity().certPem.c_str()};
  const char* const other[] = {MakeTestIdentity("/CN=Somebody Else", 1).certPem.c_str()};
  const PenUpdateCfg cfg{insFlagFirmware | insFlagApps, trusted, 1, nullptr};
  const PenUpdateCfg others{0, other, 1, nullptr};
  int bundle = 0;
  ASSERT_EQ(insLoadBundle(rig.bundle().path().c_str(), &bundle), insSuccess);
  ASSERT_EQ(insVerifyBundle(bundle, &cfg), insSuccess);
  rig.pens().OnCall(WhileThePenIsAway([&] { EXPECT_EQ(insVerifyBundle(bundle, &others), insNoCertificate); }));
  EXPECT_EQ(insStartInstall(&rig.penHandle(), bundle, &cfg, nullptr, nullptr), insSuccess);
  EXPECT_EQ(rig.pens().Contents(kPenId), kInstalled);
  EXPECT_EQ(insStartInstall(&rig.penHandle(), bundle, &cfg, nullptr, nullptr), insNoCertificate) << "the next run";
  EXPECT_EQ(insReleaseBundle(bundle), insSuccess);
}
