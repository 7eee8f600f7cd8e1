// The check of a bundle's files: every failure with its message, and which of several is reported.
#include <gtest/gtest.h>

#include <filesystem>

#include "installer/bundle/Bundle.h"
#include "tests/support/TestBundle.h"
#include "tests/support/TestLog.h"

namespace {

// `count` applications app000.pen, app001.pen, ... in one group that lists them backwards.
TestBundleOptions Apps(int count) {
  TestGroup group{.name = "Apps"};
  for (int i = count; i-- > 0;) {
    const std::string number = std::to_string(1000 + i).substr(1);
    group.packages.push_back({.name = number,
                              .fileName = "app" + number + ".pen",
                              .transferOrder = std::to_string(i),
                              .content = "content of " + number});
  }
  return {.groups = {group}};
}

class Verification : public testing::Test {
 protected:
  void Load(const TestBundleOptions& options) {
    m_file = std::make_unique<TestBundle>(options);
    ASSERT_EQ(m_bundle.Load(m_file->path().c_str()), insSuccess);
  }
  InsResCode Trust(const std::vector<std::string>& certificates) {
    std::vector<const char*> texts;
    for (const std::string& text : certificates) texts.push_back(text.c_str());
    return m_bundle.LoadVerifyingInfos(texts.data(), static_cast<int32_t>(texts.size()));
  }
  InsResCode TrustSigner() { return Trust({MakeTestIdentity().certPem}); }
  std::string File(const std::string& name) const { return m_bundle.extractFolder() + "/" + name; }
  static void Write(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
  }
  BundlePackage& Package(size_t index) { return const_cast<BundlePackage&>(m_bundle.groups()[0].packages[index]); }

  TestLog m_log;
  std::unique_ptr<TestBundle> m_file;
  CBundle m_bundle;
};

}  // namespace

TEST_F(Verification, AcceptsASignedBundle) {
  Load(Apps(40));
  ASSERT_EQ(TrustSigner(), insSuccess);
  EXPECT_EQ(m_bundle.VerifyUpdateXML(), insSuccess);
  EXPECT_EQ(m_bundle.Verify(), insSuccess);
  EXPECT_EQ(m_bundle.Verify(Package(7)), insSuccess);
  EXPECT_EQ(m_log.Lines(), Lines{});
}

TEST_F(Verification, ReportsEachFailureOfAFileInItsOrder) {
  TestBundleOptions options = Apps(4);
  options.signerOf["Files/app003.pen"] = &MakeTestIdentity("/O=Unknown/CN=Other", 1);
  options.editBomXml = [](std::string& xml) {
    const size_t entry = xml.find("<", xml.find("app002.pen") - 20);
    xml.replace(xml.find("app002.pen", entry), 10, "unsigned00");
  };
  Load(options);
  const auto check = [this](size_t index) { return m_bundle.Verify(Package(index)); };
  EXPECT_EQ(check(0), insNotVerified);
  EXPECT_EQ(check(2), insNoSignature) << "comes before the missing certificates";
  std::filesystem::remove(File("Files/app002.pen"));
  EXPECT_EQ(check(2), insFileNotFound) << "comes before the missing signature";
  ASSERT_EQ(TrustSigner(), insSuccess);
  EXPECT_EQ(check(0), insSuccess);
  EXPECT_EQ(check(3), insNoCertificate);
  Write(File("Files/app001.pen"), "content of 002");
  EXPECT_EQ(check(1), insBadSignature);
  EXPECT_EQ(m_log.Lines(),
            (Lines{"Verify: Not yet verified " + m_file->path(), "Verify: File Files/app002.pen has no DRM info",
                   "Verify: File Files/app002.pen not found", "Verify: Not found certificate for Files/app003.pen",
                   "Verify: File Files/app001.pen has invalid signature"}));
}

TEST_F(Verification, ReportsOnlyTheFirstFailureInManifestOrder) {
  Load(Apps(300));
  ASSERT_EQ(TrustSigner(), insSuccess);
  std::filesystem::remove(File("Files/app299.pen"));
  std::filesystem::remove(File("Files/app151.pen"));
  for (int round = 0; round < 20; ++round) {
    Write(File("Files/app150.pen"), "other");
    EXPECT_EQ(m_bundle.Verify(), insBadSignature);
    std::filesystem::remove(File("Files/app150.pen"));
    EXPECT_EQ(m_bundle.Verify(), insFileNotFound);
  }
  const Lines lines = m_log.Lines();
  ASSERT_EQ(lines.size(), 40U);
  EXPECT_EQ(lines[38], "Verify: File Files/app150.pen has invalid signature");
  EXPECT_EQ(lines[39], "Verify: File Files/app150.pen not found");
}

TEST_F(Verification, ChecksTheManifestFirst) {
  Load(Apps(2));
  ASSERT_EQ(TrustSigner(), insSuccess);
  std::filesystem::remove(File("Files/app000.pen"));
  std::filesystem::remove(File("update.xml"));
  EXPECT_EQ(m_bundle.Verify(), insBadSignature) << "only the folder must exist";
  std::filesystem::remove_all(m_bundle.extractFolder());
  EXPECT_EQ(m_bundle.VerifyUpdateXML(), insFileNotFound);
  EXPECT_EQ(m_log.Lines(), (Lines{"VerifyUpdateXML: File update.xml has invalid signature",
                                  "VerifyUpdateXML: File update.xml not found"}));
}

TEST_F(Verification, UsesTheFirstOfTwoCertificatesWithOneSubject) {
  const TestIdentity& signer = MakeTestIdentity();
  const TestIdentity& namesake = MakeTestIdentity(signer.subject, 1);
  Load(Apps(3));
  ASSERT_EQ(Trust({namesake.certPem, signer.certPem}), insSuccess);
  EXPECT_EQ(m_bundle.Verify(), insBadSignature);
  ASSERT_EQ(Trust({signer.certPem, namesake.certPem}), insSuccess);
  EXPECT_EQ(m_bundle.Verify(), insSuccess);
}

TEST_F(Verification, RefusesACertificateThatCannotBeUsed) {
  Load(Apps(1));
  EXPECT_EQ(Trust({MakeTestIdentity().certPem, "no certificate", MakeTestIdentity().certPem}), insBadCertificate);
  EXPECT_EQ(m_bundle.Verify(), insSuccess) << "those before it stay";
  EXPECT_EQ(m_bundle.LoadVerifyingInfos(nullptr, 2), insBadCertificate);
  EXPECT_EQ(m_bundle.LoadVerifyingInfos(nullptr, 0), insSuccess);
  EXPECT_EQ(m_bundle.Verify(), insNotVerified);
  EXPECT_EQ(m_log.Lines(), (Lines{"LoadVerifyingInfos: Loading invalid PEM certificate",
                                  "LoadVerifyingInfos: Loading invalid PEM certificate",
                                  "VerifyUpdateXML: Not yet verified " + m_file->path()}));
}
