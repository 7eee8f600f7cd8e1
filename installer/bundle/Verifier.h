// One trusted certificate: its key, its subject and the check of a file's signature against it. A verifier's digest
// context carries state through a check, so one verifier runs one check at a time.
#ifndef QUARVEL_INSTALLER_BUNDLE_VERIFIER_H
#define QUARVEL_INSTALLER_BUNDLE_VERIFIER_H

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

// The seven subject fields that decide who signed, lower-cased. An absent field is empty.
struct CertSubject {
  char emailaddress[100];
  char cn[100];
  char ou[100];
  char o[100];
  char l[100];
  char st[100];
  char c[100];
};

class CVerifier {
 public:
  CVerifier() = default;

  // Loads the first certificate of a PEM text.
  bool LoadCert(const char* pemText);

  bool LoadSubject(X509* certificate);
  // Parses "/cn=..../o=..." or "cn=..., o=..."; on failure leaves `out` as it was.
  static bool LoadSubject(CertSubject& out, const char* text);

  static bool CompareSubject(const CertSubject& a, const CertSubject& b);
  bool CompareSubject(const CertSubject& other) const { return CompareSubject(m_subject, other); }

  // Checks a base64 SHA-1 signature over the bytes of `file`.
  bool VerifySignature(const char* file, const char* signatureBase64);

 private:
  struct FreeKey {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  };
  struct FreeContext {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  std::unique_ptr<EVP_PKEY, FreeKey> m_publicKey;
  std::unique_ptr<EVP_MD_CTX, FreeContext> m_digestContext;
  const EVP_MD* m_digest = nullptr;
  CertSubject m_subject{};
};

#endif
