// The certificates that files are checked against: one verifier for each, in the order supplied. Once loaded they never
// change, so that any thread may check with them and a run keeps those that it began with.
#ifndef QUARVEL_INSTALLER_BUNDLE_CERTIFICATES_H
#define QUARVEL_INSTALLER_BUNDLE_CERTIFICATES_H

#include <cstdint>
#include <vector>

#include "installer/bundle/Verifier.h"

class CCertificates {
 public:
  // Appends the certificates of `count` PEM texts; false at the first that cannot be used, which is appended too.
  bool Load(const char* const* pemTexts, int32_t count);

  bool IsEmpty() const { return m_verifiers.empty(); }
  // The first verifier of exactly this subject, null when there is none. For a check, take a twin of it.
  const CVerifier* Find(const CertSubject& subject) const;

 private:
  std::vector<CVerifier> m_verifiers;
};

#endif
