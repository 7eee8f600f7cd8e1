#include "installer/bundle/Certificates.h"

#include <algorithm>

bool CCertificates::Load(const char* const* pemTexts, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    m_verifiers.emplace_back();
    if (!pemTexts || !m_verifiers.back().LoadCert(pemTexts[i])) return false;
  }
  return true;
}

const CVerifier* CCertificates::Find(const CertSubject& subject) const {
  const auto found = std::find_if(m_verifiers.begin(), m_verifiers.end(),
                                  [&](const CVerifier& verifier) { return verifier.CompareSubject(subject); });
  return found == m_verifiers.end() ? nullptr : &*found;
}
