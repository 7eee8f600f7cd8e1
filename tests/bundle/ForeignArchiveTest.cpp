// Bundles packed by the archivers that people have.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "installer/bundle/Bundle.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TestBundle.h"

namespace {

struct Archiver {
  const char* name;
  const char* program;
  const char* command;  // of the shell, in the folder to be packed; makes the archive $OUT
};

// Writes every file with the longer size fields.
constexpr char kPythonZip64[] =
    "python3 -c 'import os, zipfile\n"
    "with zipfile.ZipFile(os.environ[\"OUT\"], \"w\", zipfile.ZIP_DEFLATED) as z:\n"
    "  for at, _, names in os.walk(\".\"):\n"
    "    for name in names:\n"
    "      with z.open(os.path.join(at, name), \"w\", force_zip64=True) as f:\n"
    "        f.write(open(os.path.join(at, name), \"rb\").read())'";

constexpr Archiver kArchivers[] = {
    {"InfoZip", "zip", "zip -qr $OUT ."},
    {"InfoZipStoredWithoutFolders", "zip", "zip -qrD0 $OUT ."},
    {"InfoZipZip64", "zip", "zip -qr -fz $OUT ."},
    {"InfoZipZip64Stored", "zip", "zip -qr0 -fz $OUT ."},
    {"InfoZipStream", "zip", "zip -qr - . | cat > $OUT"},
    {"SevenZip", "7zz", "7zz a -tzip -bd -y $OUT . "},
    {"SevenZipStored", "7zz", "7zz a -tzip -mx=0 -bd -y $OUT update.xml bom.xml Files"},
    {"Libarchive", "bsdtar", "bsdtar --format zip -cf $OUT *"},
    {"LibarchiveStream", "bsdtar", "bsdtar --format zip -cf - . | cat > $OUT"},
    {"LibarchiveZip64", "bsdtar", "bsdtar --format zip --options zip:zip64 -cf - * | cat > $OUT"},
    {"LibarchiveStored", "bsdtar", "bsdtar --format zip --options zip:compression=store -cf $OUT *"},
    {"Python", "python3", "python3 -m zipfile -c $OUT *"},
    {"PythonZip64", "python3", kPythonZip64},
};

class ForeignArchive : public testing::TestWithParam<Archiver> {
 protected:
  static ProgramResult Shell(const std::string& command, const std::string& out = "") {
    return RunProgram({"/bin/sh", "-c", command}, {.stdinText = "", .environment = {{"OUT", out}}});
  }
};

}  // namespace

TEST_P(ForeignArchive, LoadsAndVerifies) {
  if (Shell(std::string("command -v ") + GetParam().program).status != 0) {
    GTEST_SKIP() << GetParam().program << " is not installed";
  }
  TestGroup group{.name = "Apps"};
  group.packages = {PenAppPackage("a", "A", "1.0"), {.name = "b", .fileName = "deep/er/b", .content = "file"}};
  group.packages.push_back({.name = "c", .fileName = "c", .content = std::string(300'000, 'c')});
  TestBundle own({.groups = {group}});
  CBundle unpacked;
  ASSERT_EQ(unpacked.Load(own.path().c_str()), insSuccess);

  TempFolder folder;
  const std::string archive = folder / "foreign.zip";
  const ProgramResult made = Shell("cd " + unpacked.extractFolder() + " && " + GetParam().command, archive);
  ASSERT_EQ(made.status, 0) << made.out << made.err;
  SetUniqueModificationTime(archive);
  CBundle bundle;
  EXPECT_EQ(bundle.Load(archive.c_str()), insSuccess);
  const char* const certificate = MakeTestIdentity().certPem.c_str();
  ASSERT_EQ(bundle.LoadVerifyingInfos(&certificate, 1), insSuccess);
  EXPECT_EQ(bundle.Verify(), insSuccess);
  EXPECT_NE(bundle.extractFolder(), unpacked.extractFolder());

  const std::string file = bundle.groups().at(0).packages.at(2).localPath;
  const auto identity = [&file] {
    struct stat status {};
    EXPECT_EQ(stat(file.c_str(), &status), 0);
    return status.st_ino;
  };
  const auto before = identity();
  CBundle again;
  EXPECT_EQ(again.Load(archive.c_str()), insSuccess);
  EXPECT_EQ(identity(), before) << "nothing is written anew";
  std::filesystem::remove_all(bundle.extractFolder());
}

INSTANTIATE_TEST_SUITE_P(Archivers, ForeignArchive, testing::ValuesIn(kArchivers),
                         [](const auto& row) { return std::string(row.param.name); });
