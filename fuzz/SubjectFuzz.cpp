// Subjects of certificates as texts. The input's first line is one subject, the rest another.
#include <cstring>

#include "fuzz/Fuzz.h"
#include "installer/bundle/Verifier.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto [first, second] = SplitAtLineFeed(TextOf(data, size));
  CertSubject a;
  CertSubject b;
  std::memset(&a, 'x', sizeof(a));
  b = a;
  if (!CVerifier::LoadSubject(a, first.c_str())) {
    FUZZ_CHECK(std::memcmp(&a, &b, sizeof(a)) == 0);
    return 0;
  }
  for (const char* field : {a.emailaddress, a.cn, a.ou, a.o, a.l, a.st, a.c}) {
    FUZZ_CHECK(std::memchr(field, 0, sizeof(a.cn)));
  }
  // Letter case makes no difference; what is kept of a subject is a subject.
  const std::string again = std::string("/CN=") + a.cn + "/O=" + a.o + "/C=" + a.c + "/L=" + a.l + "/ST=" + a.st +
                            "/OU=" + a.ou + "/emailAddress=" + a.emailaddress;
  FUZZ_CHECK(CVerifier::LoadSubject(b, again.c_str()));
  FUZZ_CHECK(CVerifier::CompareSubject(a, b) == CVerifier::CompareSubject(b, a));
  CVerifier::LoadSubject(b, second.c_str());
  CVerifier().LoadCert(second.c_str());
  return 0;
}
