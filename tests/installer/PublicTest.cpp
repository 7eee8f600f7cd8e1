#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <set>
#include <thread>

#include "platform/Tessvik.h"
#include "tests/updater/UpdaterRig.h"

TEST(GetVersion, GivesWhatItHasPlacesFor) {
  TestLog log;
  int parts[4] = {};
  char text[12];
  EXPECT_EQ(insGetVersion(nullptr, nullptr, 0), insNoOutput);
  EXPECT_EQ(insGetVersion(parts, nullptr, 0), insSuccess);
  EXPECT_EQ((std::vector<int>(parts, parts + 4)), (std::vector<int>{1, 2, 13, 0}));
  for (const auto& [size, expected] : std::map<int, std::string>{{0, std::string("1.2.13.0\0", 9)},
                                                                 {-5, std::string("1.2.13.0\0", 9)},
                                                                 {4, "1.2."},
                                                                 {8, "1.2.13.0"},
                                                                 {9, std::string("1.2.13.0\0", 9)},
                                                                 {12, std::string("1.2.13.0\0", 9)}}) {
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(insGetVersion(nullptr, text, size), insSuccess);
    EXPECT_EQ(std::string(text, sizeof text), expected + std::string(sizeof text - expected.size(), '#')) << size;
  }
  EXPECT_EQ(log.Lines().front(), "insGetVersion: Ret=-9999, Version=1.2.13.0");
}

TEST(SetupLog, SaysThatTheLogBeginsAndEnds) {
  const TempFolder folder;
  const std::string file = folder / "host.log";
  EXPECT_EQ(insSetupLog(1, file.c_str(), 0), 0);
  EXPECT_EQ(insAbortAll(), insSuccess);
  EXPECT_EQ(insSetupLog(0, nullptr, 0), 0);
  EXPECT_EQ(insAbortAll(), insSuccess);
  g_Logger.Close();
  std::istringstream text(ReadWholeFile(file));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line.substr(31));
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "[insSetupLog         ] Ret=0, Enable=1, Version=1.2.13.0, LogFile=" + file,
                       "[insAbortAll         ] Ret=0", "[insSetupLog         ] Ret=0, Enable=0, Version=1.2.13.0"}));
}

TEST(Bundles, HandlesCountUpAndAreNeverGivenOutAgain) {
  const TestBundle bundle(AutumnBundle());
  const char* const path = bundle.path().c_str();
  int first = 0, second = 0, third = 0, untouched = -77;
  EXPECT_EQ(insLoadBundle(path, &first), insSuccess);
  EXPECT_EQ(insLoadBundle(path, &second), insSuccess);
  EXPECT_EQ(insLoadBundle("/nowhere/bundle", &untouched), insFileNotFound);
  EXPECT_EQ(untouched, -77);
  EXPECT_EQ(insReleaseBundle(first), insSuccess);
  EXPECT_EQ(insReleaseBundle(first), insNoBundle);
  EXPECT_EQ(insLoadBundle(path, &third), insSuccess);
  EXPECT_GT(first, 0);
  EXPECT_EQ(second, first + 1);
  EXPECT_EQ(third, first + 2) << "a failed load takes no number";
  EXPECT_EQ(insLoadBundle(path, nullptr), insSuccess);
  EXPECT_EQ(insReleaseBundle(third + 1), insSuccess);
  EXPECT_EQ(insReleaseBundle(second), insSuccess);
  EXPECT_EQ(insReleaseBundle(third), insSuccess);
}

namespace {

// The calls of the pen library so far, with their arguments and results.
Lines WholeCalls() {
  Lines calls(static_cast<size_t>(pbCallCount()), std::string(200, '\0'));
  for (size_t i = 0; i < calls.size(); ++i) {
    calls[i].resize(static_cast<size_t>(pbCall(static_cast<int32_t>(i) + 1, calls[i].data(), 200)));
  }
  return calls;
}

}  // namespace

TEST(Bracket, MarksThePenForTheTimeOfTheRun) {
  UpdaterRig rig;
  const PenUpdateCfg cfg{insFlagApps, nullptr, 0, nullptr};
  EXPECT_EQ(insStartInstall(&rig.penHandle(), 9999, &cfg, nullptr, nullptr), insNoBundle);
  const std::string handle = std::to_string(rig.penHandle());
  EXPECT_EQ(WholeCalls(), (Lines{"pcGetPenId(" + handle + ", {\"nameSize\":0})=0",
                                 "pcRegisterVolatile(0, {\"name\":\"Install\",\"id\":\"0x2a\"})=0",
                                 "pcUnRegisterVolatile(0, {\"name\":\"Install\",\"id\":\"0x2a\"})=0"}));
  const std::string pen = "penHandle=" + handle + ", bundleHandle=9999";
  EXPECT_EQ(rig.log().Lines(), (Lines{"insStartInstall: +" + pen, "insStartInstall: -Ret=-103, " + pen}));

  ASSERT_EQ(pcRegisterVolatile("Install", kPenId), 0) << "somebody else is at it";
  EXPECT_EQ(rig.Install(), insPenFailure);
  EXPECT_EQ(rig.Logged("Unable register install_penId").size(), 1U);
  EXPECT_EQ(pcUnRegisterVolatile("Install", kPenId), 0);
}

TEST(CarelessHosts, GetACodeForWhatIsMissing) {
  UpdaterRig rig;
  const TestBundle& bundle = rig.bundle();
  int handle = 0;
  ASSERT_EQ(insLoadBundle(bundle.path().c_str(), &handle), insSuccess);
  const PenUpdateCfg noCertificates{insFlagApps, nullptr, 0, nullptr};
  const PenUpdateCfg lostCertificates{insFlagApps, nullptr, 3, nullptr};
  int32_t pen = rig.penHandle();
  EXPECT_EQ(insVerifyBundle(handle, nullptr), insNoConfig);
  EXPECT_EQ(insVerifyBundleFile(bundle.path().c_str(), nullptr), insNoConfig);
  EXPECT_EQ(insVerifyBundle(handle, &noCertificates), insNotVerified);
  EXPECT_EQ(insVerifyBundle(handle, &lostCertificates), insBadCertificate);
  EXPECT_EQ(insStartInstall(&pen, handle, nullptr, nullptr, nullptr), insNoConfig);
  EXPECT_EQ(insStartInstall(nullptr, handle, nullptr, nullptr, nullptr), insNoConfig);
  EXPECT_EQ(insStartInstallFile(&pen, bundle.path().c_str(), nullptr, nullptr, nullptr), insNoConfig);
  EXPECT_EQ(insLoadBundle(nullptr, nullptr), insFileNotFound);
  EXPECT_EQ(insRemoveGroup(0, nullptr, nullptr, nullptr), insPenFailure);
  EXPECT_EQ(insAbort(1), insNotRunning);
  EXPECT_EQ(insReleaseBundle(handle), insSuccess);
  EXPECT_TRUE(rig.LeftNothingOpen());
}

// From the callback, by another thread than the run's.
TEST(Bundles, AReleasedBundleServesTheRunThatUsesIt) {
  UpdaterRig rig;
  const char* const certificates[] = {MakeTestIdentity().certPem.c_str()};
  const PenUpdateCfg cfg{insFlagFirmware | insFlagApps, certificates, 1, nullptr};
  static int bundle;
  ASSERT_EQ(insLoadBundle(rig.bundle().path().c_str(), &bundle), insSuccess);
  ASSERT_EQ(insVerifyBundle(bundle, &cfg), insSuccess);
  const auto release = [](int32_t, const PenUpdateProgressCallbackInfo*, void* count) -> int32_t {
    const InsResCode expected = ++*static_cast<int*>(count) == 1 ? insSuccess : insNoBundle;
    std::thread([expected] { EXPECT_EQ(insReleaseBundle(bundle), expected); }).join();
    return 0;
  };
  int reports = 0;
  EXPECT_EQ(insStartInstall(&rig.penHandle(), bundle, &cfg, release, &reports), insSuccess);
  EXPECT_GE(reports, 4);
  EXPECT_EQ(rig.pens().Contents(kPenId), kInstalled);
  EXPECT_TRUE(rig.LeftNothingOpen());
}

TEST(CarelessHosts, GetTheirResultWhateverBecomesOfTheLog) {
  const TempFolder folder;
  for (const std::string& path :
       {std::string("/dev/full"), folder.path().string(), folder / "none/log", folder / "logs/log"}) {
    UpdaterRig rig;
    folder.Write("logs/log", "");
    EXPECT_EQ(insSetupLog(1, path.c_str(), 0), insSuccess) << path;
    rig.AnswerWith([&folder](const Report&) -> int32_t {
      std::filesystem::remove_all(folder / "logs");
      return 0;
    });
    EXPECT_EQ(rig.Install(), insSuccess) << path;
    EXPECT_EQ(rig.pens().Contents(kPenId), kInstalled) << path;
    EXPECT_EQ(insSetupLog(0, nullptr, 0), insSuccess);
  }
}

TEST(ResultCodes, AreDistinctAndTellWhatToDo) {
  std::set<int32_t> values;
#define INS_ROW(name, value, meaning, remedy)        \
  EXPECT_TRUE(values.insert(value).second) << #name; \
  EXPECT_GT(std::strlen(meaning), 5U) << #name;      \
  EXPECT_EQ(std::strlen(remedy) == 0, (value) == 0) << #name;
  INS_RESULT_CODES(INS_ROW)
#undef INS_ROW
  EXPECT_EQ(values.size(), 24U);
}
