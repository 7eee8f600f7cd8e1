#include "Common/FileUtil.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/TempFolder.h"

namespace fs = std::filesystem;

TEST(FileUtil, CreateFolderMakesTheFolderBeforeTheLastSeparatorAndOneParent) {
  const TempFolder folder;
  const struct {
    const char *path, *made;
    bool withParent, result;
  } rows[] = {
      {"one/", "one", false, true}, {"one/", "one", false, true},  // again
      {"x/two", "x", false, true},  {"a/b/", "a/b", true, true},
      {"p/q/r/", "p", true, false},  // two levels are missing
      {"s/t/", "s", false, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(CFileUtil::CreateFolder((folder / row.path).c_str(), row.withParent), row.result) << row.path;
    EXPECT_EQ(fs::is_directory(folder / row.made), row.result) << row.path;
  }
  EXPECT_FALSE(fs::exists(folder / "p"));
  struct stat status {};
  ASSERT_EQ(stat((folder / "one").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
  EXPECT_TRUE(CFileUtil::CreateFolder("bare-name", true));
  EXPECT_FALSE(fs::exists("bare-name"));
  EXPECT_TRUE(CFileUtil::CreateFolder("/etc", false)) << "the root is there";
  EXPECT_FALSE(CFileUtil::CreateFolder("", true));
  EXPECT_FALSE(CFileUtil::CreateFolder(nullptr, true));
}

TEST(FileUtil, RemoveFolderRemovesATreeButNothingBehindALink) {
  const TempFolder folder;
  const std::string kept = folder.Write("outside/kept.txt", "kept");
  folder.Write("tree/a/b/c.txt", "1");
  folder.Write("tree/.hidden", "1");
  fs::create_symlink(folder / "outside", folder / "tree/link");
  fs::create_symlink("nowhere", folder / "tree/broken");
  EXPECT_TRUE(CFileUtil::RemoveFolder((folder / "tree").c_str(), true));
  EXPECT_FALSE(fs::exists(folder / "tree"));
  EXPECT_TRUE(fs::exists(kept));
  EXPECT_FALSE(CFileUtil::RemoveFolder((folder / "tree").c_str(), true));
}

TEST(FileUtil, PathsAreCutAtTheLastBackslashElseAtTheLastSlash) {
  const struct {
    const char *path, *folder, *name;
  } rows[] = {{"/a/b.txt", "/a/", "b.txt"}, {"C:\\x/y", "C:\\", "x/y"}, {"/", "/", ""}, {"plain", nullptr, "plain"}};
  for (const auto& row : rows) {
    char out[CFileUtil::kPathSize] = "untouched";
    EXPECT_EQ(CFileUtil::GetPath(row.path, out), row.folder != nullptr) << row.path;
    EXPECT_STREQ(out, row.folder ? row.folder : "untouched") << row.path;
    EXPECT_STREQ(CFileUtil::GetFileName(row.path), row.name) << row.path;
  }
}

TEST(FileUtil, LongPathsStayInTheirBuffers) {
  const std::string name(300, 'n');
  char out[CFileUtil::kPathSize + 10];
  EXPECT_EQ(CFileUtil::GetTempFilePath(out, sizeof out, "%s", name.c_str()), 5 + 259);
  EXPECT_EQ(std::string(out), "/tmp/" + std::string(259, 'n'));
  char small[8];
  CFileUtil::GetTempFilePath(small, sizeof small, "%d-%s", 12, "x");
  EXPECT_STREQ(small, "/tmp/12");
  EXPECT_TRUE(CFileUtil::GetPath((name + "/file").c_str(), out));
  EXPECT_EQ(std::string(out), std::string(259, 'n'));
}

TEST(FileUtil, ReadsTheStartOfAFileAndKnowsTheWorkingFolder) {
  const TempFolder folder;
  const std::string file = folder.Write("f", std::string("ab\0cd", 5));
  char buffer[4] = {};
  EXPECT_EQ(CFileUtil::ReadFile(file.c_str(), buffer, 4), 4);
  EXPECT_EQ(std::string(buffer, 4), std::string("ab\0c", 4));
  EXPECT_EQ(CFileUtil::ReadFile((folder / "missing").c_str(), buffer, 4), 0);
  EXPECT_TRUE(CFileUtil::FileExists(file.c_str()));
  EXPECT_FALSE(CFileUtil::FileExists((folder / "missing").c_str()));
  char module[CFileUtil::kPathSize];
  EXPECT_EQ(CFileUtil::GetModulePath(module), static_cast<int>(fs::current_path().string().size() + 1));
  EXPECT_EQ(std::string(module), fs::current_path().string() + "/");
}
