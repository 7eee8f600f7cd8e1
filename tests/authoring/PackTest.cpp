#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "authoring/EffortScreen.h"
#include "authoring/Failure.h"
#include "authoring/Pack.h"
#include "authoring/Signing.h"
#include "authoring/ZipWriter.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestBundle.h"

namespace {

namespace fs = std::filesystem;

// A folder with one group's files and its manifest, and the signer's files beside it.
class PackTest : public testing::Test {
 protected:
  PackTest() {
    TestGroup group{.name = "Games", .version = "1.0", .folder = "Apps"};
    group.packages = {PenAppPackage("chess", "Chess", "1.2"), PaperPackage("pad", "Pad", "2.0")};
    group.packages[0].content = "abc";
    TestBundleOptions options{.groups = {group}};
    m_folder.Write("bundle/update.xml", TestUpdateXml(options));
    for (const TestPackage& package : group.packages) {
      m_folder.Write("bundle/Apps/" + package.fileName, package.content);
    }
    m_folder.Write("key.pem", MakeTestIdentity().keyPem);
    m_folder.Write("cert.pem", MakeTestIdentity().certPem);
  }

  ProgramResult RunTool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), QUARVEL_BUNDLE_PROGRAM);
    return RunProgram(arguments);
  }
  ProgramResult RunPack(const std::string& output, const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments{"pack",  m_folder / "bundle",  "-o",     m_folder / output,
                                       "--key", m_folder / "key.pem", "--cert", m_folder / "cert.pem"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunTool(arguments);
  }
  ProgramResult RunDigest() { return RunTool({"digest", m_folder / "bundle", "-o", m_folder / "digests"}); }
  ProgramResult RunAttach() {
    return RunTool({"attach", m_folder / "bundle", "--signatures", m_folder / "digests", "--cert",
                    m_folder / "cert.pem", "-o", m_folder / "attached.zip"});
  }

  TempFolder m_folder;
};

std::string EncryptKey(const std::string& pem, std::string passphrase) {
  authoring::CryptoHandle<BIO> in(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  authoring::CryptoHandle<EVP_PKEY> key(PEM_read_bio_PrivateKey(in.get(), nullptr, nullptr, nullptr));
  authoring::CryptoHandle<BIO> out(BIO_new(BIO_s_mem()));
  PEM_write_bio_PKCS8PrivateKey(out.get(), key.get(), EVP_aes_128_cbc(), passphrase.data(),
                                static_cast<int>(passphrase.size()), nullptr, nullptr);
  char* text = nullptr;
  long size = BIO_get_mem_data(out.get(), &text);
  return std::string(text, static_cast<size_t>(size));
}

TEST_F(PackTest, CountsTheBytesThatItPacks) {
  authoring::Effort effort;
  effort.Begin("Packing", 3);
  authoring::ZipWriter zip(m_folder / "counted.zip");
  zip.AddBytes("before", "not counted");
  zip.CountInto(effort);
  zip.AddFile("chess", m_folder / "bundle/Apps/chess.pen");
  zip.Close();
  EXPECT_EQ(effort.Now().done, 3U);
  const struct {
    authoring::Effort::Step step;
    uint64_t seconds;
    const char* text;
  } rows[] = {{{"Packing", 2'200'000'000, 1'249'999'999}, 61, "Packing: 1249.9 MB of 2200.0 MB, 1:01"},
              {{"Verifying", 0, 0}, 9, "Verifying: 0:09"}};
  for (const auto& row : rows) EXPECT_EQ(authoring::EffortText(row.step, row.seconds), row.text);
}

// The library verifies what is packed; the steps are told in their order.
TEST_F(PackTest, TellsItsSteps) {
  authoring::Effort effort;
  std::vector<std::string> steps;
  auto signer = authoring::Signer::FromFiles(m_folder / "key.pem", m_folder / "cert.pem", [] { return std::string(); });
  authoring::PackWith(
      m_folder / "bundle", signer.certificate(), m_folder / "told.zip",
      [&](const authoring::SignedFile& file) {
        steps.push_back(effort.Now().name + ' ' + std::to_string(effort.Now().done));
        return signer.SignFile(file.source);
      },
      effort);
  ASSERT_EQ(steps.size(), 3U);
  EXPECT_EQ(steps[0], "Signing 0");
  EXPECT_NE(steps[1], "Signing 0") << "what is signed counts";
  EXPECT_EQ(effort.Now().name, "Verifying");
}

}  // namespace

TEST_F(PackTest, GivesTheSameBytesForTheSameInput) {
  EXPECT_EQ(RunPack("first.zip").status, 0);
  fs::last_write_time(m_folder / "bundle/Apps/chess.pen", fs::file_time_type::clock::now());
  EXPECT_EQ(RunPack("second.zip").status, 0);
  std::string first = ReadWholeFile(m_folder / "first.zip");
  EXPECT_GT(first.size(), 500u);
  EXPECT_EQ(first, ReadWholeFile(m_folder / "second.zip"));
}

TEST_F(PackTest, NamesTheListedFileThatIsMissingAndLeavesNoBundle) {
  fs::remove(m_folder / "bundle/Apps/pad.pen");
  ProgramResult result = RunPack("out.zip");
  EXPECT_EQ(result.status, 1) << "as lint";
  EXPECT_NE(result.err.find("update.xml:7: error: There is no file \"Apps/pad.pen\""), std::string::npos) << result.err;
  EXPECT_FALSE(fs::exists(m_folder / "out.zip"));
}

TEST_F(PackTest, NamesTheOutputThatCannotBeWritten) {
  ProgramResult result = RunPack("missing/out.zip");
  EXPECT_EQ(result.status, 3);
  EXPECT_NE(result.err.find("Cannot write " + m_folder / "missing/out.zip" + "; choose"), std::string::npos)
      << result.err;
}

TEST_F(PackTest, RefusesAKeyThatIsNotTheCertificates) {
  m_folder.Write("key.pem", MakeTestIdentity("/CN=Other", 1).keyPem);
  ProgramResult result = RunPack("out.zip");
  EXPECT_EQ(result.status, 4);
  EXPECT_NE(result.err.find("does not belong to the certificate"), std::string::npos) << result.err;
}

TEST_F(PackTest, OpensAnEncryptedKeyWithThePassphraseOfAFile) {
  ASSERT_EQ(RunPack("plain.zip").status, 0);
  m_folder.Write("key.pem", EncryptKey(MakeTestIdentity().keyPem, "open sesame"));
  m_folder.Write("right", "open sesame\nsecond line");
  m_folder.Write("wrong", "open says me\n");
  EXPECT_EQ(RunPack("out.zip", {"--passphrase-file", m_folder / "right"}).status, 0);
  EXPECT_EQ(ReadWholeFile(m_folder / "plain.zip"), ReadWholeFile(m_folder / "out.zip"));
  ProgramResult wrong = RunPack("none.zip", {"--passphrase-file", m_folder / "wrong"});
  EXPECT_EQ(wrong.status, 4);
  EXPECT_NE(wrong.err.find("The passphrase does not open"), std::string::npos) << wrong.err;
  ProgramResult missing = RunPack("none.zip", {"--passphrase-file", m_folder / "missing"});
  EXPECT_EQ(missing.status, 3) << missing.err;
}

// On a terminal that `script` makes.
TEST_F(PackTest, AsksForThePassphraseOfAnEncryptedKey) {
  m_folder.Write("key.pem", EncryptKey(MakeTestIdentity().keyPem, "open sesame"));
  const std::string script =
      "cd \"$folder\"; (for i in $(seq 300); do grep -q Passphrase shown && break; sleep 0.1; done; sleep 0.3; "
      "echo \"$typed\") | script -qefc '\"$program\" pack bundle -o out.zip --key key.pem --cert cert.pem' shown";
  for (const std::string typed : {"open sesame", "open says me"}) {
    SCOPED_TRACE(typed);
    m_folder.Write("shown", "");
    ProgramResult result = RunProgram(
        {"/bin/sh", "-c", script},
        {.stdinText = "",
         .environment = {{"folder", m_folder.path()}, {"typed", typed}, {"program", QUARVEL_BUNDLE_PROGRAM}}});
    bool right = typed == "open sesame";
    EXPECT_EQ(result.status, right ? 0 : 4) << result.out;
    EXPECT_NE(result.out.find("Passphrase of the key: "), std::string::npos) << result.out;
    EXPECT_EQ(result.out.find(typed), std::string::npos) << "it is shown";
    EXPECT_EQ(fs::remove(m_folder / "out.zip"), right);
  }
}

TEST_F(PackTest, TwoStepsGiveTheSameBundleAsOne) {
  ASSERT_EQ(RunPack("packed.zip").status, 0);
  ASSERT_EQ(RunDigest().status, 0);
  auto list = nlohmann::json::parse(ReadWholeFile(m_folder / "digests/digests.json"));
  ASSERT_EQ(list["files"].size(), 3u);
  EXPECT_EQ(list["files"][1]["member"], "Apps/chess.pen");
  EXPECT_EQ(list["files"][1]["sha1"], "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(ReadWholeFile(m_folder / "digests/0002.sha1").substr(0, 5), "\xa9\x99\x3e\x36\x47");
  // One signature as raw bytes, the others in base64 over two lines.
  authoring::Signer signer = authoring::Signer::FromFiles(m_folder / "key.pem", m_folder / "cert.pem");
  for (const auto& entry : list["files"]) {
    std::string base64 = signer.SignFile(m_folder / "bundle/" + entry["member"].get<std::string>());
    m_folder.Write("digests/" + entry["signature"].get<std::string>(), base64.insert(64, "\n") + "\n");
  }
  std::string text = signer.SignBytes("abc");
  std::string raw(text.size(), '\0');
  EVP_DecodeBlock(reinterpret_cast<unsigned char*>(raw.data()), reinterpret_cast<const unsigned char*>(text.data()),
                  static_cast<int>(text.size()));
  m_folder.Write("digests/0002.sig", raw.substr(0, 2048 / 8));

  ProgramResult attached = RunAttach();
  EXPECT_EQ(attached.status, 0) << attached.err;
  EXPECT_EQ(ReadWholeFile(m_folder / "attached.zip"), ReadWholeFile(m_folder / "packed.zip"));
}

TEST_F(PackTest, AttachAsksForWhatIsMissingOrChanged) {
  EXPECT_NE(RunAttach().err.find("digests.json: No such file"), std::string::npos);
  ASSERT_EQ(RunDigest().status, 0);
  ProgramResult bare = RunAttach();
  EXPECT_EQ(bare.status, 3);
  EXPECT_NE(bare.err.find("0001.sig; sign the .sha1 file beside it"), std::string::npos) << bare.err;
  m_folder.Write("digests/0001.sig", "short");
  EXPECT_EQ(RunAttach().status, 4);
  std::ofstream(m_folder / "bundle/update.xml", std::ios::app) << "\n";
  ProgramResult changed = RunAttach();
  EXPECT_EQ(changed.status, 3);
  EXPECT_NE(changed.err.find("is not what was digested"), std::string::npos) << changed.err;
}

TEST_F(PackTest, KeepsNoBundleThatTheLibraryDoesNotAccept) {
  m_folder.Write("attached.zip", "an earlier one");
  ASSERT_EQ(RunDigest().status, 0);
  for (const char* signature : {"0001.sig", "0002.sig", "0003.sig"}) {
    m_folder.Write(std::string("digests/") + signature, std::string(256, 's'));
  }
  ProgramResult attached = RunAttach();
  EXPECT_EQ(attached.status, 1);
  EXPECT_NE(attached.err.find("does not verify, at update.xml: a file of the bundle has an invalid signature (-304)"),
            std::string::npos)
      << attached.err;
  EXPECT_EQ(ReadWholeFile(m_folder / "attached.zip"), "an earlier one");
  EXPECT_EQ(std::distance(fs::directory_iterator(m_folder.path()), {}), 5) << "a draft is left";
}
