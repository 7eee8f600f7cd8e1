// One certificate: its subject in every form, and signatures over files.
#include "installer/bundle/Verifier.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "authoring/Signing.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestKeys.h"

namespace {

std::string Sign(const TestIdentity& identity, const std::string& content) {
  return authoring::Signer::FromPem(identity.keyPem, authoring::Certificate::FromPem(identity.certPem, "certificate"))
      .SignBytes(content);
}

bool Accepts(const TestIdentity& identity, const std::string& file, const std::string& signature) {
  CVerifier verifier;
  return verifier.LoadCert(identity.certPem.c_str()) && verifier.VerifySignature(file.c_str(), signature.c_str());
}

}  // namespace

TEST(Verifier, ComparesSubjectsByTheirSevenFields) {
  const char* const base = "/emailAddress=a@b/CN=Pen Signer/OU=Unit/O=Org/L=Lund/ST=Skane/C=SE";
  const struct {
    const char* name;
    const char* text;
    bool isEqual;
  } rows[] = {
      {"itself", base, true},
      {"other letters", "/EMAILADDRESS=A@B/cn=pen signer/ou=unit/o=org/l=lund/st=skane/c=se", true},
      {"commas", "C=SE, ST=Skane, L=Lund, O=Org, OU=Unit, CN=Pen Signer, emailAddress=a@b", true},
      {"another key beside", "/emailAddress=a@b/CN=Pen Signer/OU=Unit/O=Org/L=Lund/ST=Skane/C=SE/UID=7", true},
      {"another e-mail", "/emailAddress=x@b/CN=Pen Signer/OU=Unit/O=Org/L=Lund/ST=Skane/C=SE", false},
      {"no unit", "/emailAddress=a@b/CN=Pen Signer/O=Org/L=Lund/ST=Skane/C=SE", false},
      {"a longer value", "/emailAddress=a@b/CN=Pen Signers/OU=Unit/O=Org/L=Lund/ST=Skane/C=SE", false},
  };
  CertSubject expected;
  ASSERT_TRUE(CVerifier::LoadSubject(expected, base));
  EXPECT_STREQ(expected.cn, "pen signer");
  for (const auto& row : rows) {
    CertSubject subject;
    ASSERT_TRUE(CVerifier::LoadSubject(subject, row.text)) << row.name;
    EXPECT_EQ(CVerifier::CompareSubject(subject, expected), row.isEqual) << row.name;
  }
}

TEST(Verifier, KeepsSubjectsInTheirFields) {
  CertSubject subject;
  ASSERT_TRUE(CVerifier::LoadSubject(subject, ("/CN=" + std::string(300, 'X') + "/C=SE").c_str()));
  EXPECT_EQ(subject.cn, std::string(99, 'x'));
  EXPECT_STREQ(subject.c, "se");
  EXPECT_FALSE(CVerifier::LoadSubject(subject, "\tCN=y"));
  EXPECT_EQ(subject.cn, std::string(99, 'x')) << "a subject that cannot be read changes nothing";
}

TEST(Verifier, LoadsTheFirstCertificateOfAText) {
  const TestIdentity& first = MakeTestIdentity("/O=First/CN=A");
  const TestIdentity& second = MakeTestIdentity("/O=Second/CN=B");
  CVerifier verifier;
  ASSERT_TRUE(verifier.LoadCert((first.certPem + second.certPem).c_str()));
  CertSubject subject;
  ASSERT_TRUE(CVerifier::LoadSubject(subject, first.subject.c_str()));
  EXPECT_TRUE(verifier.CompareSubject(subject));
}

TEST(Verifier, AcceptsNothingAfterAFailedLoad) {
  TempFolder folder;
  const std::string file = folder.Write("file", "content");
  const TestIdentity& identity = MakeTestIdentity();
  const std::string signature = Sign(identity, "content");
  const std::string bad[] = {"", "no certificate", identity.keyPem, identity.certPem.substr(0, 200)};
  for (const std::string& text : bad) {
    CVerifier verifier;
    ASSERT_TRUE(verifier.LoadCert(identity.certPem.c_str()));
    EXPECT_FALSE(verifier.LoadCert(text.c_str())) << text;
    EXPECT_FALSE(verifier.VerifySignature(file.c_str(), signature.c_str())) << text;
  }
}

TEST(Verifier, ChecksSignaturesOverWholeFiles) {
  TempFolder folder;
  const TestIdentity& identity = MakeTestIdentity();
  const std::string big(3'000'000, 'b');
  const std::string signature = Sign(identity, big);
  const std::string file = folder.Write("big", big);
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  const struct {
    const char* name;
    std::string file;
    std::string signature;
    bool isValid;
  } rows[] = {
      {"its own", file, signature, true},
      {"an empty file", folder.Write("empty", ""), Sign(identity, ""), true},
      {"an empty file with a full one's", folder / "empty", signature, false},
      {"one byte more", folder.Write("longer", big + "b"), signature, false},
      {"no file", folder / "none", signature, false},
      {"a folder", folder / "", Sign(identity, ""), false},
      {"a pipe", folder / "pipe", Sign(identity, ""), false},
      {"a device without an end", "/dev/zero", signature, false},
      {"no signature", file, "", false},
      {"a line break inside", file, signature.substr(0, 65) + "\n" + signature.substr(65), false},
      {"a signature longer than any key's", file, signature + std::string(5000, 'A'), false},
      {"another key's", file, Sign(MakeTestIdentity("/CN=Other", 1), big), false},
  };
  for (const auto& row : rows) EXPECT_EQ(Accepts(identity, row.file, row.signature), row.isValid) << row.name;
}
