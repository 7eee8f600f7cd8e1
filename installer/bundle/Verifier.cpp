#include "installer/bundle/Verifier.h"

#include <errno.h>
#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>

#include "Common/Base64.h"
#include "Common/FolderTree.h"
#include "Common/Properties.h"
#include "Common/StringUtil.h"

namespace {

constexpr size_t kReadSize = 64 * 1024;
constexpr int kLongestSignature = (1024 + 2) / 3 * 4;  // characters: keys of up to 8192 bits

// What libcrypto records as errors in this scope does not stay in the host's error queue.
class ErrorScope {
 public:
  ErrorScope() { ERR_set_mark(); }
  ~ErrorScope() { ERR_pop_to_mark(); }
  ErrorScope(const ErrorScope&) = delete;
  ErrorScope& operator=(const ErrorScope&) = delete;
};

struct FreeBio {
  void operator()(BIO* bio) const { BIO_free(bio); }
};
struct FreeCertificate {
  void operator()(X509* certificate) const { X509_free(certificate); }
};

// Stands in for libcrypto's own, which would ask on the terminal for the password of an encrypted text.
int NoPassword(char*, int, int, void*) {
  return -1;
}

template <size_t Size>
void CopyField(char (&field)[Size], const std::string& value) {
  const size_t length = std::min(value.size(), Size - 1);
  memcpy(field, value.data(), length);
}

}  // namespace

bool CVerifier::LoadCert(const char* pemText) {
  const ErrorScope errors;
  *this = CVerifier();
  const std::unique_ptr<BIO, FreeBio> text(pemText ? BIO_new_mem_buf(pemText, -1) : nullptr);
  if (!text) return false;
  const std::unique_ptr<X509, FreeCertificate> certificate(PEM_read_bio_X509(text.get(), nullptr, NoPassword, nullptr));
  if (!certificate) return false;
  CVerifier loaded;
  loaded.m_publicKey.reset(X509_get_pubkey(certificate.get()));
  if (!loaded.LoadSubject(certificate.get()) || !loaded.PrepareContexts()) return false;
  *this = std::move(loaded);
  return true;
}

CVerifier CVerifier::Twin() const {
  CVerifier twin;
  if (m_publicKey && EVP_PKEY_up_ref(m_publicKey.get()) == 1) twin.m_publicKey.reset(m_publicKey.get());
  twin.m_subject = m_subject;
  twin.PrepareContexts();
  return twin;
}

bool CVerifier::PrepareContexts() {
  const ErrorScope errors;
  m_digestContext.reset(EVP_MD_CTX_new());
  m_digest = EVP_sha1();
  if (!m_digestContext || !m_digest || !m_publicKey) return false;
  m_keyContext.reset(EVP_PKEY_CTX_new(m_publicKey.get(), nullptr));
  // A key that cannot sign digests loads all the same and then accepts no signature.
  if (m_keyContext && (EVP_PKEY_verify_init(m_keyContext.get()) != 1 ||
                       EVP_PKEY_CTX_set_signature_md(m_keyContext.get(), m_digest) != 1)) {
    m_keyContext.reset();
  }
  return true;
}

bool CVerifier::LoadSubject(X509* certificate) {
  char text[1024] = "";
  if (!certificate || !X509_NAME_oneline(X509_get_subject_name(certificate), text, sizeof(text))) return false;
  return LoadSubject(m_subject, text);
}

bool CVerifier::LoadSubject(CertSubject& out, const char* text) {
  if (!text) return false;
  // Both forms, with slashes and with commas, become one pair per line.
  std::string lines = text;
  CStringUtil::ToLower(lines);
  std::replace(lines.begin(), lines.end(), '/', '\n');
  std::replace(lines.begin(), lines.end(), ',', '\n');
  CProperties properties;
  if (!properties.Read(lines)) return false;
  out = CertSubject{};
  CopyField(out.emailaddress, properties.GetValue("emailaddress"));
  CopyField(out.cn, properties.GetValue("cn"));
  CopyField(out.ou, properties.GetValue("ou"));
  CopyField(out.o, properties.GetValue("o"));
  CopyField(out.l, properties.GetValue("l"));
  CopyField(out.st, properties.GetValue("st"));
  CopyField(out.c, properties.GetValue("c"));
  return true;
}

bool CVerifier::CompareSubject(const CertSubject& a, const CertSubject& b) {
  // Unused bytes of the fields are zero, so that the records are equal exactly when their texts are.
  return memcmp(&a, &b, sizeof(a)) == 0;
}

bool CVerifier::VerifySignature(const char* file, const char* signatureBase64) {
  // Without O_NONBLOCK a pipe of that name would keep the caller waiting.
  const UniqueFd opened(file ? open(file, O_RDONLY | O_CLOEXEC | O_NONBLOCK) : -1);
  return opened && VerifySignature(opened.get(), signatureBase64);
}

bool CVerifier::VerifySignature(int descriptor, const char* signatureBase64) {
  const ErrorScope errors;
  FileDigest digest;
  return m_digestContext && m_digest && DigestInto(m_digestContext.get(), descriptor, digest) &&
         VerifySignature(digest, signatureBase64);
}

bool CVerifier::VerifySignature(const FileDigest& digest, const char* signatureBase64) {
  const ErrorScope errors;
  if (!m_keyContext || !signatureBase64) return false;
  unsigned char signature[CBase64::DecodedSize(kLongestSignature)];
  const size_t length = strlen(signatureBase64);
  if (length > static_cast<size_t>(kLongestSignature)) return false;
  const int size =
      CBase64::Decode(signature, reinterpret_cast<const unsigned char*>(signatureBase64), static_cast<int>(length));
  return EVP_PKEY_verify(m_keyContext.get(), signature, static_cast<size_t>(size), digest.data(), digest.size()) == 1;
}

bool CVerifier::DigestFile(int descriptor, FileDigest& digest) {
  const ErrorScope errors;
  const std::unique_ptr<EVP_MD_CTX, FreeContext> context(EVP_MD_CTX_new());
  return context && DigestInto(context.get(), descriptor, digest);
}

bool CVerifier::DigestBytes(std::span<const char> bytes, FileDigest& digest) {
  const ErrorScope errors;
  return EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha1(), nullptr) == 1;
}

bool CVerifier::DigestInto(EVP_MD_CTX* context, int descriptor, FileDigest& digest) {
  if (EVP_DigestInit_ex(context, EVP_sha1(), nullptr) != 1) return false;
  struct stat status {};
  // Anything but a file may have no end.
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  unsigned char block[kReadSize];
  // A file that cannot be read further counts as ended.
  ssize_t got = 0;
  do {
    got = read(descriptor, block, sizeof(block));
    if (got > 0 && EVP_DigestUpdate(context, block, static_cast<size_t>(got)) != 1) return false;
  } while (got > 0 || (got < 0 && errno == EINTR));
  return EVP_DigestFinal_ex(context, digest.data(), nullptr) == 1;
}
