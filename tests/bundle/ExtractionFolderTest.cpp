// The extraction folder has a name that anyone can predict and is used again unread: what others put in its place, what
// archives try to put elsewhere, and what loads that meet or die there leave.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <thread>

#include "Common/Zip.h"
#include "authoring/ZipWriter.h"
#include "installer/bundle/Bundle.h"
#include "tests/support/FakeClock.h"
#include "tests/support/TestBundle.h"
#include "tests/support/TestLog.h"

namespace {

namespace fs = std::filesystem;

TestBundleOptions Files(int count, size_t size) {
  TestGroup group{.name = "Apps"};
  for (int i = 0; i < count; ++i) {
    const std::string name = "f" + std::to_string(i);
    group.packages.push_back(
        {.name = name, .fileName = "d" + std::to_string(i % 3) + "/" + name, .content = std::string(size, 'a')});
  }
  return {.groups = {group}};
}

// What a host does with a bundle: true when every file of it is there, whole and signed.
bool LoadsAndVerifies(const TestBundle& file) {
  CBundle bundle;
  const char* const certificate = MakeTestIdentity().certPem.c_str();
  return bundle.Load(file.path().c_str()) == insSuccess && bundle.LoadVerifyingInfos(&certificate, 1) == insSuccess &&
         bundle.Verify() == insSuccess && bundle.groups()[0].packages[0].fileSize > 0;
}

// Sets a resource's soft limit for as long as it lives.
class SoftLimit {
 public:
  explicit SoftLimit(rlim_t limit) {
    getrlimit(RLIMIT_FSIZE, &m_before);
    rlimit changed = m_before;
    changed.rlim_cur = limit;
    setrlimit(RLIMIT_FSIZE, &changed);
  }
  ~SoftLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }

 private:
  rlimit m_before{};
};

}  // namespace

TEST(ExtractionFolder, IsRefusedWhenOthersCouldTamperWithIt) {
  TempFolder elsewhere;
  const struct {
    const char* reason;
    std::function<void(const std::string&)> prepare;
  } rows[] = {
      {"it is a symbolic link", [&](const std::string& path) { fs::create_symlink(elsewhere.path(), path); }},
      {"it is a symbolic link", [&](const std::string& path) { fs::create_symlink(elsewhere / "none", path); }},
      {"it is not a folder", [](const std::string& path) { std::ofstream(path) << ""; }},
      {"it is not a folder", [](const std::string& path) { mkfifo(path.c_str(), 0600); }},
      {"others may write to it",
       [](const std::string& path) {
         fs::create_directory(path);
         chmod(path.c_str(), 0720);
       }},
      {"others may write to it",
       [](const std::string& path) {
         fs::create_directory(path);
         chmod(path.c_str(), 01777);
       }},
      {"it belongs to another user",
       [](const std::string& path) {
         fs::create_directory(path);
         if (chown(path.c_str(), 65534, 65534) != 0) fs::remove(path);
       }},
  };
  for (const auto& row : rows) {
    TestBundle file(Files(1, 10));
    const std::string folder = file.extractFolder();
    row.prepare(folder);
    if (!fs::exists(fs::symlink_status(folder))) continue;  // only the superuser can give a folder away
    TestLog log;
    CBundle bundle;
    EXPECT_EQ(bundle.Load(file.path().c_str()), insExtractFailed) << row.reason;
    EXPECT_EQ(log.Lines(), (Lines{"ExtractZip: Folder " + folder + " is not safe to use: " + row.reason,
                                  "Load: Extracting " + file.path() + " to " + folder + " failed. ZipErr=-105"}));
    EXPECT_TRUE(!fs::is_directory(fs::symlink_status(folder)) || fs::is_empty(folder)) << row.reason;
    EXPECT_TRUE(fs::is_empty(elsewhere.path())) << row.reason;
    if (!fs::is_directory(fs::symlink_status(folder))) fs::remove(folder);
  }
}

TEST(ExtractionFolder, IsTheUsersOwnWhateverTheMaskOfTheHost) {
  const mode_t before = umask(0);
  TestBundle file(Files(3, 10));
  EXPECT_TRUE(LoadsAndVerifies(file));
  EXPECT_TRUE(LoadsAndVerifies(file));
  umask(before);
  for (const auto& entry : fs::recursive_directory_iterator(file.extractFolder())) {
    EXPECT_EQ(entry.status().permissions() & (fs::perms::group_write | fs::perms::others_write), fs::perms::none)
        << entry.path();
  }
}

TEST(ExtractionFolder, GetsNothingThroughLinksInside) {
  TempFolder elsewhere;
  TestBundle file(Files(3, 10));
  fs::create_directory(file.extractFolder());
  fs::create_symlink(elsewhere.path(), file.extractFolder() + "/Files");
  EXPECT_FALSE(LoadsAndVerifies(file));
  EXPECT_TRUE(fs::is_empty(elsewhere.path()));
}

TEST(ExtractionFolder, KeepsMembersInside) {
  const struct {
    const char* member;
    bool isRefused;
  } rows[] = {
      {"../x", true},       {"a/../../x", true},    {"a/..", true},  {"..", true},    {"/tmp/quarvel-stray", true},
      {"..\\x", true},      {"a\\..\\..\\x", true}, {"\\x", true},   {"C:\\x", true}, {"a/..\\x", true},
      {"..x/..y..", false}, {".../x", false},       {"a/.x", false}, {"./x", false},
  };
  TestLog log;
  for (const auto& row : rows) {
    TempFolder folder;
    authoring::ZipWriter zip(folder / "a.zip");
    zip.AddBytes("good", "good");
    zip.AddBytes(row.member, "bad");
    zip.Close();
    fs::create_directories(folder / "parent/out");
    const int32_t result =
        CZip::ExtractZip((folder / "a.zip").c_str(), (folder / "parent/out").c_str(), true, &g_Logger);
    EXPECT_EQ(result, row.isRefused ? CZip::kMemberLeavesFolder : 0) << row.member;
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "parent"), {}), 1) << row.member;
    EXPECT_EQ(fs::is_empty(folder / "parent/out"), row.isRefused) << row.member;
    if (row.isRefused) {
      EXPECT_EQ(log.Lines().back(), "ExtractZip: Member " + std::string(row.member) + " of zip " + (folder / "a.zip") +
                                        " leads out of its folder");
    }
  }
  EXPECT_FALSE(fs::exists("/tmp/quarvel-stray"));
}

TEST(ExtractionFolder, KeepsNoFileThatCouldNotBeWrittenWhole) {
  TestBundle file(Files(2, 3'000'000));
  {
    const SoftLimit limit(1'000'000);
    TestLog log;
    CBundle bundle;
    EXPECT_EQ(bundle.Load(file.path().c_str()), insExtractFailed);
    ASSERT_EQ(log.Lines().size(), 2U);
    EXPECT_EQ(log.Lines()[0], "ExtractZip: Cannot write file " + file.extractFolder() + "/Files/d0/f0: File too large");
  }
  for (const auto& entry : fs::recursive_directory_iterator(file.extractFolder())) {
    const fs::path name = entry.path().filename();
    EXPECT_TRUE(entry.is_directory() || name.extension() == ".xml" || name == CSharedFolder::kLockName) << name;
  }
  EXPECT_TRUE(LoadsAndVerifies(file));
}

TEST(ExtractionFolder, LosesForgottenFilesButNoMembersOfTheirNames) {
  TempFolder folder;
  authoring::ZipWriter zip(folder / "a.zip");
  for (const char* name : {".quarvel-1-1.part", "d/.quarvel-1-2.part", "d/f"}) zip.AddBytes(name, name);
  zip.Close();
  const std::string out = folder / "out";
  const auto extract = [&] { return CZip::ExtractZip((folder / "a.zip").c_str(), out.c_str(), true, &g_Logger); };
  ASSERT_EQ(extract(), 0);
  folder.Write("out/d/.quarvel-1-3.part", "half of");
  for (const int hours : {0, 2}) {
    const FakeClock clock(time(nullptr) + hours * 3600);
    fs::remove(out + "/d/f");
    ASSERT_EQ(extract(), 0);
    EXPECT_EQ(fs::exists(out + "/d/.quarvel-1-3.part"), hours == 0);
    EXPECT_EQ(ReadWholeFile(out + "/.quarvel-1-1.part"), ".quarvel-1-1.part");
    EXPECT_EQ(ReadWholeFile(out + "/d/.quarvel-1-2.part"), "d/.quarvel-1-2.part");
  }
}

TEST(ExtractionFolder, IsNotFilledByABomb) {
  TempFolder folder;
  struct statvfs disk {};
  ASSERT_EQ(statvfs(folder.path().c_str(), &disk), 0);
  constexpr uint64_t kStated = 0xfffffff0;
  const uint64_t members = disk.f_bavail * disk.f_frsize / kStated + 1;
  if (members > 60'000) GTEST_SKIP() << "the disk has room for everything";
  authoring::ZipWriter zip(folder / "a.zip");
  for (uint64_t i = 0; i < members; ++i) zip.AddBytes(std::to_string(i), "small");
  zip.Close();
  std::string bytes = ReadWholeFile(folder / "a.zip");
  for (size_t at = 0; (at = bytes.find("PK\1\2", at)) != std::string::npos; at += 46) {
    bytes.replace(at + 24, 4, "\xf0\xff\xff\xff");  // the size in the directory
  }
  folder.Write("a.zip", bytes);
  TestLog log;
  EXPECT_EQ(CZip::ExtractZip((folder / "a.zip").c_str(), (folder / "out").c_str(), true, &g_Logger), CZip::kNoRoom);
  EXPECT_TRUE(fs::is_empty(folder / "out"));
  EXPECT_EQ(log.Lines().at(0).find("ExtractZip: No room to unpack " + (folder / "a.zip") + " in "), 0U);
}

TEST(ExtractionFolder, ServesEightProcessesAndEightThreadsAtOnce) {
  for (int round = 0; round < 25; ++round) {
    TestBundle file(Files(6, 10'000));
    std::array<pid_t, 8> children{};
    for (pid_t& child : children) {
      child = fork();
      if (child == 0) _exit(LoadsAndVerifies(file) ? 0 : 1);
    }
    std::array<bool, 8> isWhole{};
    {
      std::vector<std::jthread> threads;
      for (bool& result : isWhole) threads.emplace_back([&file, &result] { result = LoadsAndVerifies(file); });
    }
    for (const bool result : isWhole) ASSERT_TRUE(result) << "a thread in round " << round;
    for (const pid_t child : children) {
      int status = -1;
      waitpid(child, &status, 0);
      ASSERT_EQ(status, 0) << "a process in round " << round;
    }
  }
}

TEST(ExtractionFolder, SurvivesLoadsThatAreKilled) {
  TestBundle file(Files(12, 200'000));
  int killed = 0;
  for (int microseconds = 0; microseconds < 20'000; microseconds += 500) {
    fs::remove_all(file.extractFolder());
    const pid_t child = fork();
    if (child == 0) _exit(LoadsAndVerifies(file) ? 0 : 1);
    usleep(static_cast<useconds_t>(microseconds));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    killed += WIFSIGNALED(status);
    EXPECT_TRUE(LoadsAndVerifies(file)) << "killed after " << microseconds << " microseconds";
  }
  EXPECT_GT(killed, 0);
}
