// What those who rely on one folder say to each other, each by a descriptor of its own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "Common/SharedFolder.h"
#include "Common/UniqueFd.h"
#include "tests/support/FakeClock.h"
#include "tests/support/TempFolder.h"

namespace {

struct stat Source() {
  struct stat source {};
  source.st_dev = 1;
  source.st_ino = 2;
  source.st_size = 3;
  source.st_mtim = {4, 5};
  source.st_ctim = {6, 7};
  return source;
}

struct stat OtherSource() {
  struct stat source = Source();
  source.st_ino = 20;
  return source;
}

class SharedFolder : public testing::Test {
 protected:
  void SetUp() override {
    std::string fault;
    ASSERT_EQ(mine.Open(path, &fault), CSharedFolder::Opening::kOpen) << fault;
    ASSERT_EQ(others.Open(path, &fault), CSharedFolder::Opening::kOpen) << fault;
    ASSERT_EQ(mine.Join(Source(), "/mine"), "");
  }

  FakeClock clock;
  TempFolder folder;
  const std::string path = folder / "shared";
  CSharedFolder mine;
  CSharedFolder others;
};

}  // namespace

TEST_F(SharedFolder, IsReplacedForTheVerySameFileAlone) {
  const struct {
    const char* name;
    void (*change)(struct stat& source);
  } rows[] = {
      {"device", [](struct stat& source) { ++source.st_dev; }},
      {"inode", [](struct stat& source) { ++source.st_ino; }},
      {"size", [](struct stat& source) { ++source.st_size; }},
      {"seconds of change", [](struct stat& source) { ++source.st_mtim.tv_sec; }},
      {"their fraction", [](struct stat& source) { ++source.st_mtim.tv_nsec; }},
      {"seconds of what is said of it", [](struct stat& source) { ++source.st_ctim.tv_sec; }},
      {"their fraction too", [](struct stat& source) { ++source.st_ctim.tv_nsec; }},
  };
  ASSERT_EQ(others.Join(Source(), "/mine"), "");
  EXPECT_EQ(mine.BeginReplacing(), "");
  mine.EndReplacing();
  for (const auto& row : rows) {
    CSharedFolder other;
    std::string fault;
    ASSERT_EQ(other.Open(path, &fault), CSharedFolder::Opening::kOpen);
    struct stat source = Source();
    row.change(source);
    ASSERT_EQ(other.Join(source, "/other"), "");
    EXPECT_EQ(mine.BeginReplacing(), "Folder " + path + " is in use: its files come from /other, which is still loaded")
        << row.name;
    EXPECT_TRUE(other.HoldStill()) << row.name << ": what may not be replaced is not being replaced";
  }
}

TEST_F(SharedFolder, IsJoinedWhenReplacingEnds) {
  ASSERT_EQ(mine.BeginReplacing(), "");
  const int64_t began = clock.Milliseconds();
  EXPECT_EQ(others.Join(OtherSource(), "/other"),
            "Folder " + path + " is in use: its files are being replaced by those of /mine");
  EXPECT_GT(clock.Milliseconds() - began, 50'000) << "it waits for about a minute";
  mine.EndReplacing();
  EXPECT_EQ(mine.BeginReplacing(), "") << "who was refused relies on nothing";
  mine.EndReplacing();
  EXPECT_EQ(others.Join(OtherSource(), "/other"), "");
  EXPECT_EQ(others.EarlierSource(), "/mine");
}

// Cleaners of temporary files take a lock of a folder before they remove it.
TEST_F(SharedFolder, KeepsCleanersAway) {
  const UniqueFd cleaner(open(path.c_str(), O_RDONLY | O_DIRECTORY));
  EXPECT_NE(flock(cleaner.get(), LOCK_EX | LOCK_NB), 0);
}

TEST(SharedFolderAtOpening, WritesThroughNoLink) {
  TempFolder folder;
  const std::string victim = folder.Write("victim", "of a link");
  const std::string path = folder / "shared";
  std::filesystem::create_directory(path);
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  std::filesystem::create_symlink(victim, path + "/.quarvel-lock");
  CSharedFolder shared;
  std::string fault;
  EXPECT_EQ(shared.Open(path, &fault), CSharedFolder::Opening::kUnsafe);
  EXPECT_NE(fault.find("its lock file cannot be used"), std::string::npos) << fault;
}
