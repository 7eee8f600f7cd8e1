#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "authoring/Diff.h"
#include "authoring/LoadedBundle.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TestBundle.h"

namespace {

TestBundleOptions TwoGroups() {
  TestGroup games{.name = "Games", .version = "1.0", .penTypes = "1,2", .folder = "Apps"};
  games.packages = {PenAppPackage("chess", "Chess", "1.2", 7, 20), FirmwarePackage("8.9.15.b2", 10)};
  TestGroup paper{.name = "Paper", .version = "2.0", .folder = "Pads"};
  paper.packages = {PaperPackage("pad", "Pad", "3.0", 0, 15)};
  return {.description = "Autumn", .groups = {games, paper}};
}

ProgramResult RunTool(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), QUARVEL_BUNDLE_PROGRAM);
  return RunProgram(arguments);
}

std::string CertificateFile(const TempFolder& folder) {
  return folder.Write("cert.pem", MakeTestIdentity().certPem);
}

}  // namespace

TEST(LoadedBundle, TakesItsExtractionFolderAlong) {
  TestBundle bundle(TwoGroups());
  std::string folder;
  {
    authoring::LoadedBundle loaded(bundle.path());
    folder = loaded.bundle().extractFolder();
    EXPECT_EQ(loaded.result(), insSuccess);
    EXPECT_TRUE(std::filesystem::exists(folder + "/Apps/chess.pen"));
  }
  EXPECT_FALSE(std::filesystem::exists(folder)) << folder;
}

TEST(Info, ListsPackagesInTransferOrderAndSignersWithTheirDates) {
  TestBundle bundle(TwoGroups());
  TempFolder folder;
  ProgramResult result = RunTool({"info", "--cert", CertificateFile(folder), bundle.path(), "--json"});
  ASSERT_EQ(result.status, 0) << result.err;
  auto info = nlohmann::json::parse(result.out);
  EXPECT_EQ(info["description"], "Autumn");
  EXPECT_EQ(info["groups"][0]["penTypes"], (std::vector<int>{1, 2}));
  ASSERT_EQ(info["packages"].size(), 3u);
  EXPECT_EQ(info["packages"][0]["guid"], "fw-8.9.15.b2");
  EXPECT_EQ(info["packages"][1]["guid"], "pad");
  EXPECT_EQ(info["packages"][2]["build"], 7);
  ASSERT_EQ(info["signers"].size(), 1u);
  EXPECT_EQ(info["signers"][0]["files"], 4);
  EXPECT_LT(info["signers"][0]["notBefore"], info["signers"][0]["notAfter"]);
}

TEST(Info, ShowsTheSameToPeopleAndLetsNoNameSteerTheTerminal) {
  TestBundleOptions options = TwoGroups();
  options.groups[0].packages[0].name = "Ch\x1b[2Jess";
  TestBundle bundle(options);
  ProgramResult result = RunTool({"info", bundle.path()});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("20     PenApp        Ch?[2Jess"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("Paper  2.0      every"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("/C=SE/O=Pen Works/CN=Bundle Signer  4"), std::string::npos) << result.out;
}

// What verify says of a bundle and a certificate.
TEST(Verify, TellsTheFirstFailureByItsCodeAndEveryFileByItsName) {
  TestBundleOptions tampered = TwoGroups();
  tampered.replaceMembers["Apps/chess.pen"] = "other";
  TestBundleOptions headless = TwoGroups();
  headless.dropMembers = {"bom.xml"};
  struct Row {
    const char* name;
    TestBundleOptions options;
    const char* signer;
    int status;
    InsResCode result;
    const char* says;
  };
  const Row kRows[] = {
      {"good", TwoGroups(), "", 0, insSuccess, "ok      Apps/chess.pen  /C=SE/O=Pen Works"},
      {"tampered", tampered, "", 1, insBadSignature, "FAILED  Apps/chess.pen: a file of the bundle has an invalid"},
      {"foreign", TwoGroups(), "/CN=Somebody Else", 1, insNoCertificate, "FAILED  update.xml: no given certificate"},
      {"no signature manifest", headless, "", 1, insBadManifest, "bundle.zip: a manifest of the bundle is missing"},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    TestBundle bundle(row.options);
    TempFolder folder;
    std::string certificate = CertificateFile(folder);
    if (*row.signer) folder.Write("cert.pem", MakeTestIdentity(row.signer).certPem);
    ProgramResult text = RunTool({"verify", bundle.path(), "--cert", certificate});
    ProgramResult json = RunTool({"verify", bundle.path(), "--cert", certificate, "--json"});
    EXPECT_EQ(text.status, row.status);
    EXPECT_EQ(json.status, row.status);
    EXPECT_NE(text.out.find(row.says), std::string::npos) << text.out << text.err;
    EXPECT_EQ(nlohmann::json::parse(json.out)["result"], row.result);
  }
}

TEST(Diff, NamesWhatIsNewGoneAndChanged) {
  TestBundle before(TwoGroups());
  TestBundleOptions options = TwoGroups();
  options.groups[0].version = "1.1";
  options.groups[0].packages[0].version = "1.3";
  options.groups[1].packages[0] = PenAppPackage("go", "Go", "0.1", 0, 15);
  TestBundle after(options);
  EXPECT_EQ(RunTool({"diff", before.path(), before.path()}).status, 0);
  ProgramResult result = RunTool({"diff", before.path(), after.path()});
  EXPECT_EQ(result.status, 1);
  for (const char* line :
       {"~ group Games: version \"1.0\" -> \"1.1\"\n", "~ package chess: version \"1.2\" -> \"1.3\"\n",
        "- package pad\n", "+ package go\n", "- file Pads/pad.pen\n", "~ file update.xml: content"}) {
    EXPECT_NE(result.out.find(line), std::string::npos) << line << " is not in\n" << result.out;
  }
  EXPECT_EQ(result.out.find("file Apps/chess.pen"), std::string::npos) << result.out;
}

// Every command, given what it cannot use, ends in one sentence.
TEST(Commands, EndInOneSentenceForWhatTheyCannotUse) {
  TempFolder folder;
  std::string text = folder.Write("text.zip", "no archive");
  std::string certificate = CertificateFile(folder);
  std::string missing = folder / "missing";
  struct Row {
    std::vector<std::string> arguments;
    int status;
    const char* says;
  };
  const Row kRows[] = {
      {{"info", missing}, 3, "Cannot read"},
      {{"info", text}, 3, "does not load: the bundle could not be unpacked"},
      {{"info", folder.path().string()}, 3, "Cannot read"},
      {{"lint", missing}, 3, "There is no file or folder"},
      {{"lint", text}, 3, "is not a zip archive"},
      {{"lint", folder.path().string(), "--cert", text}, 4, "holds no certificate"},
      {{"lint", text, "--ignore", "nothing"}, 2, "\"nothing\" is the name of no finding"},
      {{"verify", text}, 2, "--cert is required. See \"quarvel-bundle verify --help\"."},
      {{"diff", text, missing}, 3, "does not load"},
      {{"mutate", text, "-o", missing}, 3, "is not a zip archive"},
      {{"mutate", text, "-o", missing, "--key", text}, 2, "--key requires --cert"},
      {{"pack", missing, "-o", missing, "--key", text, "--cert", certificate}, 4, "holds no private key"},
      {{"frobnicate"}, 2, "See \"quarvel-bundle --help\"."},
  };
  for (const Row& row : kRows) {
    ProgramResult result = RunTool(row.arguments);
    SCOPED_TRACE(row.arguments[0] + ": " + result.err);
    EXPECT_EQ(result.status, row.status);
    EXPECT_NE(result.err.find(row.says), std::string::npos) << row.says;
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1);
    EXPECT_EQ(result.out, "");
  }
}
