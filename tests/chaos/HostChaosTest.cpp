// A host that calls everything from everywhere: all eleven functions from eight threads at random, with callbacks that
// abort, release and throw. QUARVEL_CHAOS_SECONDS makes it last longer than a test run has time for.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "installer/QuarvelPublic.h"
#include "tests/chaos/WildPens.h"
#include "tests/support/FakeClock.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestBundle.h"

namespace {

using wild::Below;
using wild::OneIn;

constexpr int kThreads = 8;
constexpr size_t kSlots = 4;

std::chrono::seconds Duration() {
  const char* seconds = std::getenv("QUARVEL_CHAOS_SECONDS");
  return std::chrono::seconds(seconds ? std::atoi(seconds) : 2);
}

template <typename Items>
auto& AnyOf(Items& items) {
  return items[static_cast<size_t>(Below(static_cast<int>(std::size(items))))];
}

TestBundleOptions Options() {
  TestBundleOptions options;
  options.groups.push_back({.name = "Games", .version = "2.0", .folder = "Games"});
  options.groups[0].packages = {FirmwarePackage("9.9.9.b1"), PenAppPackage("App0", "Chess", "1.1", 0, 1),
                                PaperPackage("App1", "Dots", "1.0", 1, 2), PenAppPackage("App9", "Pong", "3", 0, 3)};
  options.groups.push_back({.name = "Desktop", .version = "1", .penTypes = "-1", .folder = "Desktop"});
  options.groups[1].packages = {{.name = "Manual", .fileName = "manual.pdf", .fileType = "Manual", .content = "pages"}};
  return options;
}

// Everything that the calls of all threads share. A handle in a slot may have been released by another thread.
class Host {
 public:
  InsResCode GetVersion() {
    char text[9];
    return insGetVersion(nullptr, OneIn(2) ? text : nullptr, sizeof text);
  }
  InsResCode SetupLog() {
    const std::string file = OneIn(4) ? "none/b.log" : "a.log";
    return insSetupLog(OneIn(4) ? 0 : 1, (m_folder / file).c_str(), OneIn(2) ? 100'000 : 0);
  }
  InsResCode LoadBundle() {
    int handle = 0;
    const InsResCode result = insLoadBundle(AnyFile(), &handle);
    if (result == insSuccess) insReleaseBundle(AnySlot().exchange(handle));
    return result;
  }
  InsResCode ReleaseBundle() { return insReleaseBundle(AnySlot()); }
  InsResCode VerifyBundle() { return insVerifyBundle(AnySlot(), AnyConfig()); }
  InsResCode VerifyBundleFile() { return insVerifyBundleFile(AnyFile(), AnyConfig()); }
  InsResCode StartInstall() {
    int32_t pen = AnyPen();
    return insStartInstall(OneIn(10) ? nullptr : &pen, AnySlot(), AnyConfig(), AnyCallback(), this);
  }
  InsResCode StartInstallFile() {
    int32_t pen = AnyPen();
    return insStartInstallFile(OneIn(10) ? nullptr : &pen, AnyFile(), AnyConfig(), AnyCallback(), this);
  }
  InsResCode RemoveGroup() { return insRemoveGroup(AnyPen(), OneIn(4) ? nullptr : "Games", AnyCallback(), this); }
  InsResCode Abort() { return insAbort(wild::IdOf(Below(wild::kPens))); }
  InsResCode AbortAll() { return insAbortAll(); }

  const TempFolder& folder() const { return m_folder; }
  int callbacks() const { return m_callbacks; }

  // Reads the record as a host does that shows it, and answers as no host should.
  static int32_t OnReport(int32_t, const PenUpdateProgressCallbackInfo* info, void* host) {
    ++static_cast<Host*>(host)->m_callbacks;
    for (const char* text : {info->packageFile, info->packageName, info->guid, info->version, info->action,
                             info->fileType, info->bundleFile, info->groupName}) {
      if (text && strlen(text) > 1000) ADD_FAILURE() << "a text of a record is no text";
    }
    for (int32_t i = 0; i < info->propertyCount; ++i) EXPECT_NE(info->properties[i].name, nullptr);
    if (OneIn(40)) throw std::runtime_error("from the callback");
    if (OneIn(40)) insAbort(info->penId);
    if (OneIn(80)) insAbortAll();
    if (OneIn(40)) static_cast<Host*>(host)->ReleaseBundle();
    return OneIn(20) ? 1 : 0;
  }

 private:
  const char* AnyFile() const { return OneIn(20) ? nullptr : OneIn(20) ? "/none.zip" : m_bundle.path().c_str(); }
  std::atomic<int>& AnySlot() { return AnyOf(m_slots); }
  const PenUpdateCfg* AnyConfig() const { return OneIn(20) ? nullptr : &AnyOf(m_configs); }
  static int32_t AnyPen() { return OneIn(20) ? Below(20) : wild::HandleOf(Below(wild::kPens)); }
  static PenUpdateProgressCallback AnyCallback() { return OneIn(10) ? nullptr : OnReport; }

  TempFolder m_folder;
  TestBundle m_bundle{Options()};
  const char* m_certificate = MakeTestIdentity().certPem.c_str();
  const char* m_noCertificate = "none";
  const std::array<PenUpdateCfg, 5> m_configs = {
      PenUpdateCfg{insFlagApps, &m_certificate, 1, nullptr},
      PenUpdateCfg{insFlagApps | insFlagFirmware, &m_certificate, 1, "Games"},
      PenUpdateCfg{0xffff, &m_certificate, 1, ""}, PenUpdateCfg{insFlagApps, &m_noCertificate, 1, nullptr},
      PenUpdateCfg{insFlagForce, nullptr, 0, "Other"}};
  std::array<std::atomic<int>, kSlots> m_slots = {};
  std::atomic<int> m_callbacks = 0;
};

// A function and every result that it is documented to give.
struct Entry {
  const char* name;
  InsResCode (Host::*call)();
  std::set<InsResCode> results;
};

const Entry kEntries[] = {
    {"insGetVersion", &Host::GetVersion, {0, -9999}},
    {"insSetupLog", &Host::SetupLog, {0}},
    {"insLoadBundle", &Host::LoadBundle, {0, -4}},
    {"insReleaseBundle", &Host::ReleaseBundle, {0, -103}},
    {"insVerifyBundle", &Host::VerifyBundle, {0, -103, -301, -302, -307}},
    {"insVerifyBundleFile", &Host::VerifyBundleFile, {0, -4, -301, -302, -307}},
    {"insStartInstall",
     &Host::StartInstall,
     {0, 1, -2, -5, -6, -102, -103, -200, -201, -202, -300, -301, -305, -307, -1000}},
    {"insStartInstallFile",
     &Host::StartInstallFile,
     {0, 1, -2, -4, -5, -6, -102, -200, -201, -202, -300, -301, -302, -307, -1000}},
    {"insRemoveGroup", &Host::RemoveGroup, {0, -2, -6}},
    {"insAbort", &Host::Abort, {0, -7}},
    {"insAbortAll", &Host::AbortAll, {0}},
};

void CallAtRandom(Host& host, std::chrono::steady_clock::time_point end) {
  while (std::chrono::steady_clock::now() < end) {
    const Entry& entry = AnyOf(kEntries);
    const InsResCode result = (host.*entry.call)();
    EXPECT_TRUE(entry.results.contains(result)) << entry.name << " gives " << result;
    if (OneIn(10)) wild::CallLate();
  }
}

}  // namespace

TEST(HostChaos, EightThreadsCallEverything) {
  FakeClock clock;
  Host host;
  const auto end = std::chrono::steady_clock::now() + Duration();
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back([&] { CallAtRandom(host, end); });
  }
  EXPECT_TRUE(wild::AllAtRest());
  EXPECT_GT(host.callbacks(), 0);
  insSetupLog(0, nullptr, 0);
  std::istringstream log(ReadWholeFile(host.folder() / "a.log"));
  for (std::string line; std::getline(log, line);) {
    EXPECT_TRUE(line.size() >= 54 && line.starts_with("[01") && line.substr(52, 2) == "] ") << line;
  }
}
