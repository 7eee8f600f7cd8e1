// Unpacking archives, and reading one member.
#include "Common/Zip.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <vector>

#include "authoring/Files.h"
#include "authoring/ZipWriter.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TestLog.h"

namespace {

namespace fs = std::filesystem;

std::string MakeZip(const TempFolder& folder, const std::function<void(authoring::ZipWriter&)>& fill,
                    const std::string& name = "a.zip") {
  authoring::ZipWriter zip(folder / name);
  fill(zip);
  zip.Close();
  return folder / name;
}

// The archive of one member, its sizes and its place in the longer fields of the directory as asked for.
std::string WithLongFields(std::string zip, const std::vector<size_t>& positions) {
  const size_t entry = zip.find("PK\1\2");
  const size_t end = zip.rfind("PK\5\6");
  std::string values;
  for (const size_t position : positions) {
    values += zip.substr(entry + position, 4) + std::string(4, '\0');
    zip.replace(entry + position, 4, "\xff\xff\xff\xff");
  }
  const std::string other("ux\3\0abc", 7);
  const std::string field = std::string("\1\0", 2) + static_cast<char>(values.size()) + '\0' + values;
  zip[entry + 30] = static_cast<char>(other.size() + field.size());
  zip[end + 12] = static_cast<char>(zip[end + 12] + other.size() + field.size());  // the directory's size
  return zip.insert(end, other + field);
}

class Zip : public testing::Test {
 protected:
  int32_t Extract(const std::string& zip, bool skipUnchanged = true) {
    return CZip::ExtractZip(zip.c_str(), m_out.c_str(), skipUnchanged, &g_Logger);
  }
  std::string Out(const std::string& name) const { return ReadWholeFile(m_out + "/" + name); }
  void Write(const std::string& name, const std::string& content) const {
    authoring::WriteFile(m_out + "/" + name, content);
  }

  TestLog m_log;
  TempFolder m_folder;
  std::string m_out = m_folder / "out";
};

}  // namespace

TEST_F(Zip, CountsBeyondSixteenBits) {
  for (const uint64_t members : {0xFFFF, 0x10001}) {
    const std::string zip = MakeZip(m_folder, [members](authoring::ZipWriter& writer) {
      for (uint64_t i = 1; i < members; ++i) writer.AddFolder("dir/");
      writer.AddBytes("last", std::to_string(members));
    });
    EXPECT_EQ(Extract(zip, false), 0) << members;
    EXPECT_EQ(Out("last"), std::to_string(members));
    const ProgramResult listed = RunProgram({"/usr/bin/unzip", "-Z", "-h", zip});
    EXPECT_NE(listed.out.find("entries: " + std::to_string(members)), std::string::npos) << listed.out;
  }
  EXPECT_EQ(m_log.Lines(), Lines{});
}

TEST_F(Zip, UnpacksMembersWithTheirFoldersAndDates) {
  const std::string big = std::string(6'000'000, 'x') + "end";
  const std::string zip = MakeZip(m_folder, [&](authoring::ZipWriter& writer) {
    writer.AddBytes("top.bin", "top");
    writer.AddBytes("dir/sub/deep/f.bin", big);
    writer.AddFolder("empty/of/files/");
    writer.AddBytes("dir/none", "");
  });
  ASSERT_EQ(Extract(zip), 0);
  EXPECT_EQ(Out("top.bin"), "top");
  EXPECT_EQ(Out("dir/sub/deep/f.bin"), big);
  EXPECT_EQ(fs::file_size(m_out + "/dir/none"), 0U);
  EXPECT_TRUE(fs::is_directory(m_out + "/empty/of/files"));
  EXPECT_EQ(m_log.Lines(), Lines{});

  tm_unz date{};
  struct stat status {};
  ASSERT_EQ(stat((m_out + "/top.bin").c_str(), &status), 0);
  date.tm_year = 1980;  // every archive of the author's tool has the earliest date
  date.tm_mday = 1;
  EXPECT_EQ(status.st_mtime, CZip::MakeTime(date));
  EXPECT_EQ(status.st_mode & 022U, 0U);
}

TEST_F(Zip, LeavesFilesOfTheRightSizeAlone) {
  const std::string zip = MakeZip(m_folder, [](authoring::ZipWriter& writer) {
    for (const char* name : {"a", "d/b", "d/c"}) writer.AddBytes(name, "12345");
  });
  ASSERT_EQ(Extract(zip), 0);
  Write("a", "54321");
  Write("d/b", "1234");
  fs::remove(m_out + "/d/c");
  fs::create_directory_symlink(m_folder.path(), m_out + "/d/c");
  ASSERT_EQ(Extract(zip), 0);
  EXPECT_EQ(Out("a"), "54321");
  EXPECT_EQ(Out("d/b"), "12345");
  EXPECT_EQ(Out("d/c"), "12345");
  EXPECT_FALSE(fs::is_symlink(m_out + "/d/c"));
  ASSERT_EQ(Extract(zip, false), 0);
  EXPECT_EQ(Out("a"), "12345");
}

TEST_F(Zip, LetsTheLastMemberOfANameStand) {
  const std::string zip = MakeZip(m_folder, [](authoring::ZipWriter& writer) {
    for (int i = 0; i < 200; ++i) writer.AddBytes(i % 3 ? "same" : "./same", std::to_string(1000 + i));
    writer.AddBytes("same", "the last");
  });
  ASSERT_EQ(Extract(zip), 0);
  EXPECT_EQ(Out("same"), "the last");
}

TEST_F(Zip, MakesADestinationGivenWithBackslashes) {
  const std::string zip = MakeZip(m_folder, [](authoring::ZipWriter& writer) { writer.AddBytes("f", "1"); });
  std::string out = m_folder / "p/q";
  std::replace(out.begin(), out.end(), '/', '\\');
  ASSERT_EQ(CZip::ExtractZip(zip.c_str(), out.c_str(), true, nullptr), 0);
  EXPECT_EQ(ReadWholeFile(m_folder / "p/q/f"), "1");
}

TEST_F(Zip, SaysWhyAnArchiveCannotBeUnpacked) {
  const std::string good = MakeZip(m_folder, [](authoring::ZipWriter& writer) {
    writer.AddBytes("a", "first");
    writer.AddBytes("b", "second");
  });
  const std::string none = m_folder.Write("none.zip", "before" + ReadWholeFile(MakeZip(
                                                                     m_folder, [](authoring::ZipWriter&) {}, "n")));
  std::string bytes = ReadWholeFile(good);
  bytes.replace(bytes.find("PK\3\4", 4), 2, "xx");  // the head of the second member
  const std::string badHead = m_folder.Write("head.zip", bytes);
  bytes = ReadWholeFile(good);
  bytes.replace(bytes.rfind("PK\1\2"), 2, "xx");  // its entry in the directory
  const std::string badEntry = m_folder.Write("entry.zip", bytes);
  const std::string file = m_folder.Write("file", "");
  const std::string taken = m_folder.Write("taken/a/x", "");
  const struct {
    const char* name;
    std::string zip;
    std::string out;
    int32_t result;
    std::string message;
  } rows[] = {
      {"no archive", file, m_out, CZip::kCannotOpen, "Cannot open file zip " + file},
      {"a folder", m_out, m_out, CZip::kCannotOpen, "Cannot open file zip " + m_out},
      {"no members", none, m_out, CZip::kNoFirstMember,
       "Go to first file failed in zip " + none + " (Error 0xffffff99)"},
      {"a head that is none", badHead, m_folder / "o1", CZip::kCannotOpenMember,
       "Open current file failed in zip file " + badHead + " (Error 0xffffff99)"},
      {"an entry that is none", badEntry, m_folder / "o2", CZip::kBadMemberInfo,
       "Get file info failed in zip file " + badEntry + " (Error 0xffffff99)"},
      {"two missing parents", good, m_folder / "o/p/q", CZip::kNoFolder,
       "Cannot create folder " + (m_folder / "o/p/q")},
      {"a file for a folder", good, file, CZip::kNoFolder, "Cannot create folder " + file},
      {"a folder for a file", good, m_folder / "taken", CZip::kCannotOpen,
       "Cannot open file " + (m_folder / "taken/a")},
  };
  Lines messages;
  for (const auto& row : rows) {
    EXPECT_EQ(CZip::ExtractZip(row.zip.c_str(), row.out.c_str(), true, &g_Logger), row.result) << row.name;
    messages.push_back("ExtractZip: " + row.message);
    EXPECT_EQ(m_log.Lines(), messages) << row.name;
  }
  EXPECT_EQ(ReadWholeFile(m_folder / "o1/a") + ReadWholeFile(m_folder / "o2/a"), "firstfirst")
      << "what stands before a faulty member is unpacked";
}

TEST_F(Zip, EndsADamagedMemberSilently) {
  const std::string zip = MakeZip(m_folder, [](authoring::ZipWriter& writer) {
    writer.AddBytes("a", std::string(1000, 'a'));
    writer.AddBytes("b", "whole");
  });
  std::string bytes = ReadWholeFile(zip);
  bytes[bytes.find("PK\3\4") + 31] = '\7';  // the kind of the first block, which follows the name, is none
  m_folder.Write("a.zip", bytes);
  EXPECT_EQ(Extract(zip), 0);
  EXPECT_EQ(fs::file_size(m_out + "/a"), 0U);
  EXPECT_EQ(Out("b"), "whole");
}

TEST_F(Zip, TakesSizesAndPlacesFromTheLongerFields) {
  constexpr size_t kPackedSize = 20;
  constexpr size_t kSize = 24;
  constexpr size_t kPlace = 42;
  const std::string content(3000, 'x');
  const std::string deflated = ReadWholeFile(MakeZip(m_folder, [&](auto& zip) { zip.AddBytes("f", content); }));
  const std::string file = m_folder.Write("f", content);
  ASSERT_EQ(RunProgram({"/usr/bin/zip", "-0jqX", m_folder / "s.zip", file}).status, 0);
  const std::string stored = ReadWholeFile(m_folder / "s.zip");
  for (const std::string& plain : {deflated, stored}) {
    for (const auto& positions : std::vector<std::vector<size_t>>{
             {}, {kSize}, {kPackedSize}, {kPlace}, {kSize, kPackedSize}, {kSize, kPackedSize, kPlace}}) {
      const std::string zip = m_folder.Write("a.zip", WithLongFields(plain, positions));
      fs::remove_all(m_out);
      ASSERT_EQ(Extract(zip), 0) << positions.size();
      EXPECT_EQ(Out("f"), content);
      Write("f", std::string(3000, 'y'));
      ASSERT_EQ(Extract(zip), 0);
      EXPECT_EQ(Out("f"), std::string(3000, 'y')) << "the file has the right size";
      std::string read;
      EXPECT_EQ(CZip::ReadInternalFile(zip.c_str(), "f", read, &g_Logger), 0);
      EXPECT_EQ(read, content);
    }
  }
  EXPECT_EQ(m_log.Lines(), Lines{});
}

TEST_F(Zip, RefusesAMemberWhoseHeadIsDamagedWhateverIsThere) {
  const std::string good = ReadWholeFile(MakeZip(m_folder, [](authoring::ZipWriter& writer) {
    writer.AddBytes("a", "first");
    writer.AddFolder("d/");
    writer.AddBytes("d/b", "second");
    writer.AddBytes("c", "last");
  }));
  const std::string zip = m_folder / "a.zip";
  ASSERT_EQ(Extract(zip), 0);
  const struct {
    const char* name;
    size_t position;
    int32_t result;
  } rows[] = {
      {"mark", 0, CZip::kCannotOpenMember},
      {"version", 4, 0},
      {"other flags", 6, 0},
      {"method", 8, CZip::kCannotOpenMember},
      {"date", 10, 0},
      {"checksum", 14, CZip::kCannotOpenMember},
      {"packed size", 18, CZip::kCannotOpenMember},
      {"size", 22, CZip::kCannotOpenMember},
      {"size of the name", 26, CZip::kCannotOpenMember},
      {"name", 30, 0},
  };
  for (const std::string member : {"d/", "d/b"}) {
    Lines messages = m_log.Lines();
    for (const auto& row : rows) {
      std::string bytes = good;
      bytes[bytes.find("PK\3\4", bytes.find(member) - 30) + row.position] ^= 1;
      m_folder.Write("a.zip", bytes);
      const std::string fresh = m_folder / ("fresh " + member.substr(0, 1) + std::to_string(member.size()) + row.name);
      for (const std::string& out : {m_out, fresh}) {
        EXPECT_EQ(CZip::ExtractZip(zip.c_str(), out.c_str(), true, &g_Logger), row.result) << row.name << " in " << out;
        if (row.result)
          messages.push_back("ExtractZip: Open current file failed in zip file " + zip + " (Error 0xffffff99)");
        EXPECT_EQ(m_log.Lines(), messages);
      }
      EXPECT_EQ(fs::exists(fresh + "/a"), true) << "it stands before the damaged one";
      EXPECT_TRUE(fs::exists(fresh + "/c") || row.result != 0) << "what stands behind it is left out or not";
    }
  }
}

TEST_F(Zip, ReadsOneMember) {
  const std::string zip = MakeZip(m_folder, [](authoring::ZipWriter& writer) {
    writer.AddBytes("d/a", "content");
    writer.AddBytes("b", std::string(5000, 'b'));
  });
  std::string bytes = ReadWholeFile(zip);
  bytes[bytes.find("PK\3\4") + 14] ^= 1;  // the checksum of "d/a", in its head and in the directory
  bytes[bytes.find("PK\1\2") + 16] ^= 1;
  const std::string bad = m_folder.Write("bad.zip", bytes);
  const struct {
    const char* name;
    std::string zip;
    const char* member;
    int32_t result;
    std::string content;
  } rows[] = {
      {"a member", zip, "b", 0, "before" + std::string(5000, 'b')},
      {"other letters", zip, "D/A", CZip::kNotFound, "before"},
      {"no archive", m_folder / "none", "b", CZip::kCannotOpen, "before"},
      {"a wrong checksum", bad, "d/a", CZip::kCheckFailed, ""},
  };
  for (const auto& row : rows) {
    std::string content = "before";
    EXPECT_EQ(CZip::ReadInternalFile(row.zip.c_str(), row.member, content, &g_Logger), row.result) << row.name;
    EXPECT_EQ(content, row.content) << row.name;
  }
  EXPECT_EQ(m_log.Lines(), (Lines{"ReadInternalFile: Not found D/A in zip " + zip + " (Error 0xffffff9c)",
                                  "ReadInternalFile: Cannot open file zip " + (m_folder / "none")}));
}

TEST_F(Zip, TakesSizesForTheSignOfChange) {
  const std::string file = m_folder.Write("f", "12345");
  unz_file_info info{};
  info.uncompressed_size = 5;
  info.tmu_date = {.tm_sec = 0, .tm_min = 0, .tm_hour = 0, .tm_mday = 1, .tm_mon = 5, .tm_year = 2026};
  EXPECT_FALSE(CZip::DetectChange(file.c_str(), info));
  EXPECT_TRUE(CZip::DetectChange((m_folder / "none").c_str(), info));
  info.uncompressed_size = 4;
  EXPECT_TRUE(CZip::DetectChange(file.c_str(), info));
}
