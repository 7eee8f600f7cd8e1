#include "authoring/Signing.h"

#include <fmt/format.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <cstring>
#include <exception>

#include "authoring/Failure.h"
#include "authoring/Files.h"

namespace authoring {

namespace {

CryptoHandle<BIO> ReadStream(const std::string& text) {
  return CryptoHandle<BIO>(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

std::time_t ToSeconds(const ASN1_TIME* time) {
  std::tm parts{};
  return ASN1_TIME_to_tm(time, &parts) == 1 ? timegm(&parts) : 0;
}

// libcrypto's callback for an encrypted key: hands over the passphrase and remembers that it was asked. What the source
// throws waits here until libcrypto, which lets nothing be thrown through it, has returned.
struct PassphraseRequest {
  const PassphraseSource& source;
  bool asked = false;
  std::exception_ptr thrown{};

  static int Answer(char* buffer, int size, int, void* self) {
    auto* request = static_cast<PassphraseRequest*>(self);
    request->asked = true;
    if (!request->source) return -1;
    try {
      std::string passphrase = request->source();
      size_t length = std::min(static_cast<size_t>(size), passphrase.size());
      std::memcpy(buffer, passphrase.data(), length);
      OPENSSL_cleanse(passphrase.data(), passphrase.size());
      return static_cast<int>(length);
    } catch (...) {
      request->thrown = std::current_exception();
      return -1;
    }
  }
};

CryptoHandle<EVP_PKEY> ReadKey(const std::string& pem, const PassphraseSource& passphrase, const std::string& origin) {
  PassphraseRequest request{passphrase};
  CryptoHandle<BIO> stream = ReadStream(pem);
  CryptoHandle<EVP_PKEY> key(PEM_read_bio_PrivateKey(stream.get(), nullptr, &PassphraseRequest::Answer, &request));
  ERR_clear_error();
  if (key) return key;
  if (request.thrown) std::rethrow_exception(request.thrown);
  if (request.asked && !passphrase) {
    throw Failure(ExitStatus::kKey, fmt::format("{} is encrypted; give its passphrase.", origin));
  }
  if (request.asked) {
    throw Failure(ExitStatus::kKey, fmt::format("The passphrase does not open {}; try again.", origin));
  }
  throw Failure(ExitStatus::kKey, fmt::format("{} holds no private key in PEM form; give the signer's key.", origin));
}

// One running SHA-1 signature.
class SignatureRun {
 public:
  explicit SignatureRun(EVP_PKEY* key) : m_context(EVP_MD_CTX_new()) {
    Check(EVP_DigestSignInit(m_context.get(), nullptr, EVP_sha1(), nullptr, key));
  }
  void Add(const void* bytes, size_t count) { Check(EVP_DigestSignUpdate(m_context.get(), bytes, count)); }
  std::string Finish() {
    size_t size = 0;
    Check(EVP_DigestSignFinal(m_context.get(), nullptr, &size));
    std::string signature(size, '\0');
    Check(EVP_DigestSignFinal(m_context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size));
    signature.resize(size);
    return EncodeBase64(signature);
  }

 private:
  static void Check(int result) {
    if (result == 1) return;
    ERR_clear_error();
    throw Failure(ExitStatus::kKey, "The key cannot make SHA-1 signatures; use an RSA key.");
  }
  CryptoHandle<EVP_MD_CTX> m_context;
};

}  // namespace

Certificate Certificate::FromPem(const std::string& pem, const std::string& origin) {
  Certificate result;
  CryptoHandle<BIO> stream = ReadStream(pem);
  result.m_certificate.reset(PEM_read_bio_X509(stream.get(), nullptr, nullptr, nullptr));
  ERR_clear_error();
  if (!result.m_certificate) {
    throw Failure(ExitStatus::kKey,
                  fmt::format("{} holds no certificate in PEM form; give the signer's certificate.", origin));
  }
  result.m_pem = pem;
  result.m_origin = origin;
  return result;
}

Certificate Certificate::FromFile(const std::string& path) {
  return FromPem(ReadFile(path), path);
}

std::string Certificate::Subject() const {
  std::unique_ptr<char, decltype([](char* text) { OPENSSL_free(text); })> line(
      X509_NAME_oneline(X509_get_subject_name(m_certificate.get()), nullptr, 0));
  return line ? std::string(line.get()) : std::string();
}

std::time_t Certificate::NotBefore() const {
  return ToSeconds(X509_get0_notBefore(m_certificate.get()));
}
std::time_t Certificate::NotAfter() const {
  return ToSeconds(X509_get0_notAfter(m_certificate.get()));
}

Signer Signer::FromPem(const std::string& keyPem, Certificate certificate, const PassphraseSource& passphrase,
                       const std::string& origin) {
  CryptoHandle<EVP_PKEY> key = ReadKey(keyPem, passphrase, origin);
  bool pair = X509_check_private_key(certificate.handle(), key.get()) == 1;
  ERR_clear_error();
  if (!pair) {
    throw Failure(ExitStatus::kKey,
                  fmt::format("{} does not belong to the certificate \"{}\"; give a key and its own certificate.",
                              origin, certificate.Subject()));
  }
  return Signer(std::move(key), std::move(certificate));
}

Signer Signer::FromFiles(const std::string& keyFile, const std::string& certificateFile,
                         const PassphraseSource& passphrase) {
  return FromPem(ReadFile(keyFile), Certificate::FromFile(certificateFile), passphrase, keyFile);
}

std::string Signer::SignBytes(std::string_view bytes) const {
  SignatureRun run(m_key.get());
  run.Add(bytes.data(), bytes.size());
  return run.Finish();
}

std::string Signer::SignFile(const std::string& path) const {
  SignatureRun run(m_key.get());
  ReadBlocks(path, [&run](std::string_view block) { run.Add(block.data(), block.size()); });
  return run.Finish();
}

std::string EncodeBase64(std::string_view bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                               reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<size_t>(length));
  return text;
}

}  // namespace authoring
