#include "authoring/Mutate.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "authoring/LoadedBundle.h"
#include "tests/support/TestBundle.h"

namespace {

// A bundle with files in two folders, taken apart with and without its signer's key.
class MutateTest : public testing::Test {
 protected:
  MutateTest() : m_bundle(Options()), m_certificate(authoring::Certificate::FromPem(MakeTestIdentity().certPem, "")) {}

  static TestBundleOptions Options() {
    TestGroup games{.name = "Games", .version = "1.0", .folder = "Apps"};
    games.packages = {PenAppPackage("chess", "Chess", "1.2", 1, 2), FirmwarePackage("8.9.15.b2", 1)};
    TestGroup paper{.name = "Paper", .version = "2.0"};
    paper.packages = {PaperPackage("pad", "Pad", "1.0", 0, 3)};
    return {.groups = {games, paper}};
  }

  void ExpectItsResults(const authoring::Mutant& mutant) {
    SCOPED_TRACE(mutant.name);
    authoring::LoadedBundle loaded((m_folder / mutant.file));
    EXPECT_EQ(loaded.result(), mutant.load);
    if (loaded.result() != insSuccess) return;
    const char* pem = m_certificate.pem().c_str();
    ASSERT_EQ(loaded.bundle().LoadVerifyingInfos(&pem, 1), insSuccess);
    EXPECT_EQ(loaded.bundle().Verify(), mutant.verify);
  }

  TestBundle m_bundle;
  authoring::Certificate m_certificate;
  TempFolder m_folder;
};

}  // namespace

TEST_F(MutateTest, EveryMutantGivesTheResultsThatItsListSays) {
  authoring::Signer signer = authoring::Signer::FromPem(
      MakeTestIdentity().keyPem, authoring::Certificate::FromPem(MakeTestIdentity().certPem, ""));
  std::vector<authoring::Mutant> mutants = authoring::Mutate(m_bundle.path(), m_folder.path().string(), &signer);
  std::set<InsResCode> results;
  for (const authoring::Mutant& mutant : mutants) {
    ExpectItsResults(mutant);
    results.insert(mutant.load != insSuccess ? mutant.load : mutant.verify);
  }
  std::set<InsResCode> all{insSuccess,     insFileNotFound, insBadManifest,   insExtractFailed,
                           insNoSignature, insBadSignature, insNoCertificate, insBadSubject};
  EXPECT_EQ(results, all);
  EXPECT_FALSE(std::filesystem::exists("/tmp/quarvel-escaped.txt"));
}

TEST_F(MutateTest, ListsWhatItWroteAndLeavesOutWhatMustBeSignedAgain) {
  std::vector<authoring::Mutant> mutants = authoring::Mutate(m_bundle.path(), m_folder / "new", nullptr);
  auto list = nlohmann::json::parse(ReadWholeFile(m_folder / "new/expected.json"));
  ASSERT_EQ(list["mutants"].size(), mutants.size());
  for (const auto& entry : list["mutants"]) {
    EXPECT_TRUE(std::filesystem::exists(m_folder / "new/" + entry["file"].get<std::string>())) << entry;
    EXPECT_EQ(entry.contains("verify"), entry["load"] == 0) << entry;
    EXPECT_NE(entry["name"], "long-values");
  }
}
