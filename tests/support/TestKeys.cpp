#include "tests/support/TestKeys.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
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

std::string PemOfKey(EVP_PKEY* key) {
  return PemOf([key](BIO* out) { return PEM_write_bio_PrivateKey(out, key, nullptr, nullptr, 0, nullptr, nullptr); });
}

// The file of a key, which no other process opens as long as the object lives.
class KeyFile {
 public:
  explicit KeyFile(int number) {
    std::error_code ignored;
    std::filesystem::create_directories(QUARVEL_TEST_KEYS, ignored);
    std::string path = fmt::format("{}/key-{}.pem", QUARVEL_TEST_KEYS, number);
    m_file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_file >= 0) flock(m_file, LOCK_EX);
  }
  ~KeyFile() {
    if (m_file >= 0) close(m_file);
  }
  KeyFile(const KeyFile&) = delete;
  KeyFile& operator=(const KeyFile&) = delete;

  // Null when the file holds no whole key.
  std::unique_ptr<EVP_PKEY, Free> Read() const {
    std::string text(8192, '\0');
    ssize_t size = m_file >= 0 ? pread(m_file, text.data(), text.size(), 0) : 0;
    std::unique_ptr<BIO, Free> stream(BIO_new_mem_buf(text.data(), static_cast<int>(std::max<ssize_t>(size, 0))));
    std::unique_ptr<EVP_PKEY, Free> key(PEM_read_bio_PrivateKey(stream.get(), nullptr, nullptr, nullptr));
    ERR_clear_error();
    return key;
  }
  // A key that cannot be kept serves this process all the same.
  void Write(const std::string& pem) const {
    if (m_file < 0 || pwrite(m_file, pem.data(), pem.size(), 0) == static_cast<ssize_t>(pem.size())) return;
    if (ftruncate(m_file, 0) != 0) throw std::runtime_error("the folder of the tests' keys is full");
  }

 private:
  int m_file = -1;
};

EVP_PKEY* KeyOf(int number) {
  static std::map<int, std::unique_ptr<EVP_PKEY, Free>> keys;
  auto& key = keys[number];
  if (key) return key.get();
  KeyFile file(number);
  key = file.Read();
  if (!key) {
    key.reset(EVP_RSA_gen(2048));
    Check(key != nullptr);
    file.Write(PemOfKey(key.get()));
  }
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
  identity.keyPem = PemOfKey(key);
  identity.certPem = PemOf([cert](BIO* out) { return PEM_write_bio_X509(out, cert); });
  char* line = X509_NAME_oneline(X509_get_subject_name(cert), nullptr, 0);
  identity.subject = line;
  OPENSSL_free(line);
  return identity;
}

}  // namespace

const TestIdentity& MakeTestIdentity(const TestIdentityOptions& options) {
  static std::mutex lock;
  static std::map<std::tuple<std::string, int, int, int>, TestIdentity> identities;
  std::lock_guard<std::mutex> guard(lock);
  auto key = std::tuple(options.subject, options.key, options.validFromDays, options.validToDays);
  auto found = identities.find(key);
  if (found == identities.end()) found = identities.emplace(key, Make(options)).first;
  return found->second;
}
