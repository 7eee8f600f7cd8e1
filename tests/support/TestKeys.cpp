#include "tests/support/TestKeys.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <tuple>

namespace {

constexpr long kSecondsOfDay = 24 * 60 * 60;

struct Free {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(BIO* stream) const { BIO_free(stream); }
};

void Check(bool done) {
  if (!done) throw std::runtime_error("libcrypto cannot make a key or certificate for the test");
}

template <typename Write>
std::string PemOf(Write write) {
  std::unique_ptr<BIO, Free> stream(BIO_new(BIO_s_mem()));
  Check(write(stream.get()) == 1);
  char* data = nullptr;
  long size = BIO_get_mem_data(stream.get(), &data);
  return std::string(data, static_cast<size_t>(size));
}

EVP_PKEY* KeyOf(int number) {
  static std::map<int, std::unique_ptr<EVP_PKEY, Free>> keys;
  auto& key = keys[number];
  if (!key) key.reset(EVP_RSA_gen(2048));
  Check(key != nullptr);
  return key.get();
}

// Adds the pairs of "/C=SE/O=Pen Works/CN=Bundle Signer".
void FillName(X509_NAME* name, const std::string& subject) {
  for (size_t start = 1; start < subject.size();) {
    size_t end = std::min(subject.find('/', start), subject.size());
    size_t equals = subject.find('=', start);
    std::string key = subject.substr(start, equals - start);
    std::string value = subject.substr(equals + 1, end - equals - 1);
    Check(X509_NAME_add_entry_by_txt(name, key.c_str(), MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(value.c_str()), -1, -1, 0) == 1);
    start = end + 1;
  }
}

TestIdentity Make(const TestIdentityOptions& options) {
  EVP_PKEY* key = KeyOf(options.key);
  std::unique_ptr<X509, Free> certificate(X509_new());
  X509* cert = certificate.get();
  Check(cert && X509_set_version(cert, 2) == 1);
  ASN1_INTEGER_set(X509_get_serialNumber(cert), options.key + 1);
  X509_gmtime_adj(X509_getm_notBefore(cert), options.validFromDays * kSecondsOfDay);
  X509_gmtime_adj(X509_getm_notAfter(cert), options.validToDays * kSecondsOfDay);
  FillName(X509_get_subject_name(cert), options.subject);
  Check(X509_set_issuer_name(cert, X509_get_subject_name(cert)) == 1);
  Check(X509_set_pubkey(cert, key) == 1 && X509_sign(cert, key, EVP_sha256()) > 0);

  TestIdentity identity;
  identity.keyPem =
      PemOf([key](BIO* out) { return PEM_write_bio_PrivateKey(out, key, nullptr, nullptr, 0, nullptr, nullptr); });
  identity.certPem = PemOf([cert](BIO* out) { return PEM_write_bio_X509(out, cert); });
  char* line = X509_NAME_oneline(X509_get_subject_name(cert), nullptr, 0);
  identity.subject = line;
  OPENSSL_free(line);
  return identity;
}

}  // namespace

const TestIdentity& MakeTestIdentity(const TestIdentityOptions& options) {
  static std::map<std::tuple<std::string, int, int, int>, TestIdentity> identities;
  auto key = std::tuple(options.subject, options.key, options.validFromDays, options.validToDays);
  auto found = identities.find(key);
  if (found == identities.end()) found = identities.emplace(key, Make(options)).first;
  return found->second;
}
