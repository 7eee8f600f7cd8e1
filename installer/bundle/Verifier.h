// One trusted certificate: its key, its subject and the check of a file's signature against it. A verifier's contexts
// carry state through a check, so one verifier runs one check at a time; threads that check side by side have a twin
// each.
#ifndef QUARVEL_INSTALLER_BUNDLE_VERIFIER_H
#define QUARVEL_INSTALLER_BUNDLE_VERIFIER_H

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <array>
#include <memory>
#include <span>

// The SHA-1 digest that a file's signature is made over.
using FileDigest = std::array<unsigned char, 20>;

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

  // Checks a base64 SHA-1 signature over the bytes of `file`. False also when the file cannot be opened or no
  // certificate is loaded.
  bool VerifySignature(const char* file, const char* signatureBase64);
  // The same over what an open file holds from its position on.
  bool VerifySignature(int descriptor, const char* signatureBase64);
  // The same over bytes of this digest.
  bool VerifySignature(const FileDigest& digest, const char* signatureBase64);

  // The digest of what an open file holds from its position on; false for anything but a regular file. What of it
  // cannot be read counts as its end.
  static bool DigestFile(int descriptor, FileDigest& digest);
  static bool DigestBytes(std::span<const char> bytes, FileDigest& digest);

  // Another verifier of the same certificate, for another thread. The key is shared, it does not change.
  CVerifier Twin() const;

 private:
  struct FreeKey {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  };
  struct FreeContext {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  struct FreeKeyContext {
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
  };

  bool PrepareContexts();
  static bool DigestInto(EVP_MD_CTX* context, int descriptor, FileDigest& digest);

  std::unique_ptr<EVP_PKEY, FreeKey> m_publicKey;
  std::unique_ptr<EVP_MD_CTX, FreeContext> m_digestContext;
  const EVP_MD* m_digest = nullptr;
  std::unique_ptr<EVP_PKEY_CTX, FreeKeyContext> m_keyContext;  // ready to verify one SHA-1 digest after the other
  CertSubject m_subject{};
};

#endif
