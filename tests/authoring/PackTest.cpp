#include <gtest/gtest.h>

#include <filesystem>

#include "authoring/Failure.h"
#include "authoring/Pack.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestBundle.h"

namespace {

// A folder with one group's files and its manifest, and the signer's files beside it.
class PackTest : public testing::Test {
 protected:
  PackTest() {
    TestGroup group{.name = "Games", .version = "1.0", .folder = "Apps"};
    group.packages = {PenAppPackage("chess", "Chess", "1.2"), PaperPackage("pad", "Pad", "2.0")};
    TestBundleOptions options{.groups = {group}};
    m_folder.Write("bundle/update.xml", TestUpdateXml(options));
    for (const TestPackage& package : group.packages) {
      m_folder.Write("bundle/Apps/" + package.fileName, package.content);
    }
    m_folder.Write("key.pem", MakeTestIdentity().keyPem);
    m_folder.Write("cert.pem", MakeTestIdentity().certPem);
  }

  ProgramResult RunPack(const std::string& output) {
    return RunProgram({QUARVEL_BUNDLE_PROGRAM, "pack", m_folder / "bundle", "-o", m_folder / output, "--key",
                       m_folder / "key.pem", "--cert", m_folder / "cert.pem"});
  }

  TempFolder m_folder;
};

}  // namespace

TEST_F(PackTest, GivesTheSameBytesForTheSameInput) {
  EXPECT_EQ(RunPack("first.zip").status, 0);
  std::filesystem::last_write_time(m_folder / "bundle/Apps/chess.pen", std::filesystem::file_time_type::clock::now());
  EXPECT_EQ(RunPack("second.zip").status, 0);
  std::string first = ReadWholeFile(m_folder / "first.zip");
  EXPECT_GT(first.size(), 500u);
  EXPECT_EQ(first, ReadWholeFile(m_folder / "second.zip"));
}

TEST_F(PackTest, NamesTheListedFileThatIsMissingAndLeavesNoBundle) {
  std::filesystem::remove(m_folder / "bundle/Apps/pad.pen");
  ProgramResult result = RunPack("out.zip");
  EXPECT_EQ(result.status, 3);
  EXPECT_NE(result.err.find("Apps/pad.pen; update.xml lists it in line 7"), std::string::npos) << result.err;
  EXPECT_FALSE(std::filesystem::exists(m_folder / "out.zip"));
}

TEST_F(PackTest, RefusesAKeyThatIsNotTheCertificates) {
  m_folder.Write("key.pem", MakeTestIdentity("/CN=Other", 1).keyPem);
  ProgramResult result = RunPack("out.zip");
  EXPECT_EQ(result.status, 4);
  EXPECT_NE(result.err.find("does not belong to the certificate"), std::string::npos) << result.err;
}
