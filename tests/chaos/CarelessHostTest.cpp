// What a host does from inside its callback, on a simulated pen.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "installer/QuarvelPublic.h"
#include "platform/Tessvik.h"
#include "simulator/PenBench.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestBundle.h"

namespace {

constexpr uint64_t kPenId = 0x2a;

// One pen, one loaded bundle of three applications, and what the host does in its first callback.
class CarelessHost : public testing::Test {
 protected:
  using Deed = std::function<int32_t(const PenUpdateProgressCallbackInfo&)>;

  void SetUp() override {
    ASSERT_EQ(pbSetFolder(m_pens.path().c_str()), 0);
    ASSERT_EQ(pbAddPen(R"({"id": "0x2a", "type": 1, "firmware": "8.9.14.b1"})"), 0);
    ASSERT_EQ(pcGetPenHandles(&m_pen, 1), 1);
    ASSERT_EQ(insLoadBundle(m_files.path().c_str(), &m_bundle), 0);
    ASSERT_EQ(insVerifyBundle(m_bundle, &m_config), 0);
  }

  InsResCode Install(Deed deed) {
    m_deed = std::move(deed);
    m_callbacks = 0;
    return insStartInstall(&m_pen, m_bundle, &m_config, OnReport, this);
  }

  void ExpectPenIsFree() const {
    EXPECT_EQ(pbMarks(), 0);
    EXPECT_EQ(pbOpenChannels(), 0);
    EXPECT_EQ(insAbort(kPenId), insNotRunning);
  }

  int32_t m_pen = 0;
  int m_bundle = 0;
  int m_callbacks = 0;

 private:
  static int32_t OnReport(int32_t, const PenUpdateProgressCallbackInfo* info, void* userData) {
    auto& host = *static_cast<CarelessHost*>(userData);
    return host.m_callbacks++ == 0 ? host.m_deed(*info) : 0;
  }

  static TestBundleOptions Options() {
    TestBundleOptions options;
    options.groups.push_back({.name = "Games", .version = "1.0", .folder = "Games"});
    for (int i = 0; i < 3; ++i) {
      const std::string guid = "game" + std::to_string(i);
      options.groups[0].packages.push_back(PenAppPackage(guid, "Game " + guid, "1.0", 0, i));
    }
    return options;
  }

  Deed m_deed;
  TempFolder m_pens;
  TestBundle m_files{Options()};
  const char* m_certificate = MakeTestIdentity().certPem.c_str();
  const PenUpdateCfg m_config = {insFlagApps | insFlagForce, &m_certificate, 1, nullptr};
};

}  // namespace

TEST_F(CarelessHost, ReleasesTheBundleThatIsBeingInstalled) {
  const InsResCode result = Install([this](const PenUpdateProgressCallbackInfo&) {
    std::thread([this] { EXPECT_EQ(insReleaseBundle(m_bundle), insSuccess); }).join();
    return 0;
  });
  EXPECT_EQ(result, insSuccess);
  EXPECT_GE(m_callbacks, 3);
  EXPECT_EQ(insReleaseBundle(m_bundle), insNoBundle);
  ExpectPenIsFree();
}

TEST_F(CarelessHost, EndsItsRunAndStartsAnother) {
  struct Row {
    const char* name;
    Deed deed;
  };
  const Row rows[] = {
      {"aborts the run",
       [](const PenUpdateProgressCallbackInfo& info) {
         EXPECT_EQ(insAbort(info.penId), insSuccess);
         return 0;
       }},
      {"aborts all runs", [](const PenUpdateProgressCallbackInfo&) { return insAbortAll(); }},
      {"answers that it wants no more", [](const PenUpdateProgressCallbackInfo&) { return -1; }},
      {"throws", [](const PenUpdateProgressCallbackInfo&) -> int32_t { throw std::runtime_error("from the host"); }},
      {"throws what is no exception", [](const PenUpdateProgressCallbackInfo&) -> int32_t { throw 1; }},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Install(row.deed), insAborted);
    ExpectPenIsFree();
    EXPECT_EQ(Install([](const PenUpdateProgressCallbackInfo&) { return 0; }), insSuccess);
  }
}

TEST_F(CarelessHost, GetsItsResultWhateverBecomesOfTheLog) {
  TempFolder folder;
  const std::string paths[] = {"/dev/full", folder.path().string(), folder / "none/log", folder / "logs/log"};
  for (const std::string& path : paths) {
    folder.Write("logs/log", "");
    EXPECT_EQ(insSetupLog(1, path.c_str(), 0), insSuccess) << path;
    const InsResCode result = Install([&](const PenUpdateProgressCallbackInfo&) {
      std::filesystem::remove_all(folder / "logs");
      return 0;
    });
    EXPECT_EQ(result, insSuccess) << path;
    EXPECT_GE(m_callbacks, 3) << path;
  }
  EXPECT_EQ(insSetupLog(0, nullptr, 0), insSuccess);
}
