// Keys and certificates for tests: RSA of 2048 bits, self-signed. The keys are made once for the build and kept below
// its folder, because each takes a tenth of a second; certificates are made in every process. Any thread may call.
#ifndef QUARVEL_TESTS_SUPPORT_TESTKEYS_H
#define QUARVEL_TESTS_SUPPORT_TESTKEYS_H

#include <string>

// A signer as PEM texts, and the certificate's subject in the one-line form.
struct TestIdentity {
  std::string keyPem;
  std::string certPem;
  std::string subject;
};

// What may differ between certificates. Two identities with the same `key` number share their key; the days are
// counted from now.
struct TestIdentityOptions {
  std::string subject = "/C=SE/O=Pen Works/CN=Bundle Signer";
  int key = 0;
  int validFromDays = -1;
  int validToDays = 365;
};

// The same options give the same identity for the length of the process.
const TestIdentity& MakeTestIdentity(const TestIdentityOptions& options = {});
inline const TestIdentity& MakeTestIdentity(const std::string& subject, int key = 0) {
  return MakeTestIdentity(TestIdentityOptions{.subject = subject, .key = key});
}

#endif
