// Twenty pens are served at once, each on a thread of its own, in the time of one.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "installer/QuarvelPublic.h"
#include "tests/support/SimPens.h"
#include "tests/support/TestBundle.h"

namespace {

constexpr int kPens = 20;

std::string Payload(size_t size) {
  return std::string(size, 'x');
}

TestBundleOptions BigBundle() {
  TestPackage firmware = FirmwarePackage("8.9.15.b2", 1);
  firmware.content = FirmwareContent("8.9.15.b2", Payload(300'000));
  TestPackage writer = PenAppPackage("writer", "Writer", "3.1.0", 7, 20);
  writer.content = PenAppContent("writer", "3.1.0", 7, "Writer", "app", Payload(500'000));
  TestPackage draw = PenAppPackage("draw", "Draw", "1.0", 1, 30);
  draw.content = PenAppContent("draw", "1.0", 1, "Draw", "app", Payload(400'000));
  TestBundleOptions options;
  options.groups = {{.name = "Office", .version = "2.0", .penTypes = "2", .packages = {firmware, writer, draw}}};
  return options;
}

// Pens in real time: what is measured is whether they hinder each other.
class TwentyPens : public testing::Test {
 protected:
  TwentyPens() : m_bundle(BigBundle()) {
    pbReset();
    pbSetFolder(m_folder.path().c_str());
  }
  ~TwentyPens() override {
    pbReset();
    pbSetFolder(nullptr);
  }

  int32_t Add(int id) {
    const SimPens::Json pen = {
        {"id", std::to_string(id)},
        {"type", 2},
        {"firmware", "8.9.14.b1"},
        {"settings",
         {{"transfer-speed", 400'000}, {"leave-time", 100}, {"return-time", 200}, {"own-thread", id % 2 == 0}}}};
    EXPECT_EQ(pbAddPen(pen.dump().c_str()), 0);
    return HandleOf(id);
  }
  static SimPens::Json Read(int id) {
    std::string text(10'000, '\0');
    pbShowPen(static_cast<uint64_t>(id), text.data(), static_cast<int32_t>(text.size()));
    return SimPens::Json::parse(text.c_str());
  }
  static int32_t HandleOf(int id) { return Read(id).at("handle"); }

  // Installs on the pens from `first` to `last` at once; returns the seconds that it took.
  double Install(int first, int last) {
    std::vector<int32_t> handles;
    for (int id = first; id <= last; ++id) handles.push_back(Add(id));
    std::vector<InsResCode> results(handles.size(), insNotRunning);
    const auto began = std::chrono::steady_clock::now();
    {
      std::vector<std::jthread> threads;
      for (size_t i = 0; i < handles.size(); ++i) {
        threads.emplace_back([&, i] { results[i] = InstallOn(handles[i]); });
      }
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    EXPECT_EQ(results, std::vector<InsResCode>(handles.size(), insSuccess));
    for (int id = first; id <= last; ++id) {
      EXPECT_EQ(Read(id).at("firmware"), "8.9.15.b2") << "pen " << id;
      EXPECT_EQ(Read(id).at("penlets").size(), 2U) << "pen " << id;
    }
    return took.count();
  }

 private:
  InsResCode InstallOn(int32_t handle) const {
    const char* const certificates[] = {MakeTestIdentity().certPem.c_str()};
    const PenUpdateCfg cfg{insFlagFirmware | insFlagApps, certificates, 1, nullptr};
    return insStartInstallFile(&handle, m_bundle.path().c_str(), &cfg, nullptr, nullptr);
  }

  TempFolder m_folder;
  TestBundle m_bundle;
};

}  // namespace

TEST_F(TwentyPens, AreServedAtOnce) {
  const double one = Install(100, 100);
  EXPECT_EQ(pbRemovePen(100), 0);
  const double twenty = Install(1, kPens);
  RecordProperty("SecondsOfOne", std::to_string(one));
  RecordProperty("SecondsOfTwenty", std::to_string(twenty));
  EXPECT_LT(twenty, one * kPens / 2) << "the pens wait for each other";
  EXPECT_EQ(pbOpenChannels() + pbMarks() + pbThreads(), 0);
}
