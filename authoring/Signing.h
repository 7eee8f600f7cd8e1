// The signer of a bundle: a private key and its certificate. Values; a signer may be used by one thread at a time.
#ifndef QUARVEL_AUTHORING_SIGNING_H
#define QUARVEL_AUTHORING_SIGNING_H

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace authoring {

// Frees a libcrypto handle.
struct CryptoFree {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(BIO* stream) const { BIO_free(stream); }
};
template <typename Handle>
using CryptoHandle = std::unique_ptr<Handle, CryptoFree>;

class Certificate {
 public:
  // `origin` names the text in messages. Only the first certificate of the text counts.
  static Certificate FromPem(const std::string& pem, const std::string& origin);
  static Certificate FromFile(const std::string& path);

  // The subject as the signature manifest carries it: slash-separated key=value pairs.
  std::string Subject() const;
  // Seconds since the epoch between which the certificate is valid.
  std::time_t NotBefore() const;
  std::time_t NotAfter() const;

  // The PEM text it was made from, as the library's verifier takes it, and where that text came from.
  const std::string& pem() const { return m_pem; }
  const std::string& origin() const { return m_origin; }
  X509* handle() const { return m_certificate.get(); }

 private:
  std::string m_pem;
  std::string m_origin;
  CryptoHandle<X509> m_certificate;
};

// Gives the passphrase of an encrypted key; asked only when the key is encrypted.
using PassphraseSource = std::function<std::string()>;

class Signer {
 public:
  // Throws Failure when the key cannot be read or does not belong to the certificate.
  static Signer FromPem(const std::string& keyPem, Certificate certificate, const PassphraseSource& passphrase = {},
                        const std::string& origin = "the key");
  static Signer FromFiles(const std::string& keyFile, const std::string& certificateFile,
                          const PassphraseSource& passphrase = {});

  // SHA-1 signatures in base64, on one line.
  std::string SignBytes(std::string_view bytes) const;
  std::string SignFile(const std::string& path) const;

  const Certificate& certificate() const { return m_certificate; }

 private:
  Signer(CryptoHandle<EVP_PKEY> key, Certificate certificate)
      : m_key(std::move(key)), m_certificate(std::move(certificate)) {}

  CryptoHandle<EVP_PKEY> m_key;
  Certificate m_certificate;
};

// Base64 without line breaks.
std::string EncodeBase64(std::string_view bytes);

}  // namespace authoring

#endif
