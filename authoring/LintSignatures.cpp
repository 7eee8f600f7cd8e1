// Traps of "bom.xml" and of the certificates.
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <set>

#include "authoring/Lint.h"
#include "installer/bundle/Verifier.h"

namespace authoring {

namespace {

constexpr size_t kLongestSubjectValue = 99;

// The part after the last backslash or, where there is none, after the last slash: by it a file without an entry of
// its own is looked up.
std::string BareName(const std::string& path) {
  size_t separator = path.rfind('\\');
  if (separator == std::string::npos) separator = path.rfind('/');
  return separator == std::string::npos ? path : path.substr(separator + 1);
}

// The key of a file as the library forms it: separators as written.
std::string KeyOf(const ManifestPackage& package) {
  return LowerCase(package.folder + "/" + package.fileName);
}

std::set<std::string> RecordKeys(const LintInput& input) {
  std::set<std::string> keys;
  for (const SignatureRecord& record : input.signatures) {
    if (record.hasName) keys.insert(record.key);
  }
  return keys;
}

void MissingSignatureManifest(const LintInput& input, Findings& findings) {
  if (!input.contents.isArchive() || (input.bom.present && input.bom.root)) return;
  findings.Add(kSignatureManifestName, 0,
               input.bom.present ? "\"bom.xml\" has no complete root element" : "There is no \"bom.xml\" at the top");
}

void UnsignedFile(const LintInput& input, Findings& findings) {
  if (!input.bom.root) return;
  std::set<std::string> keys = RecordKeys(input);
  if (!keys.contains(kManifestName)) findings.Add(kManifestName, 0, "\"update.xml\" has no entry in \"bom.xml\"");
  if (!input.manifest) return;
  for (const ManifestPackage* package : input.manifest->FilePackages()) {
    std::string key = KeyOf(*package);
    if (keys.contains(key) || keys.contains(BareName(key))) continue;
    findings.Add(kManifestName, package->element->line,
                 fmt::format("No entry of \"bom.xml\" is found for \"{}/{}\"", package->folder, package->fileName));
  }
}

void SignatureMatchesNothing(const LintInput& input, Findings& findings) {
  std::set<std::string> keys = RecordKeys(input);
  std::set<std::string> used{kManifestName};
  if (input.manifest) {
    for (const ManifestPackage* package : input.manifest->FilePackages()) {
      std::string key = KeyOf(*package);
      used.insert(keys.contains(key) ? key : BareName(key));
    }
  }
  for (const SignatureRecord& record : input.signatures) {
    if (!record.hasName) {
      findings.Add(kSignatureManifestName, record.line, "An entry without the attribute \"name\" is skipped");
    } else if (!used.contains(record.key)) {
      findings.Add(kSignatureManifestName, record.line,
                   fmt::format("The entry \"{}\" is that of no package", record.key));
    }
  }
}

void DuplicateSignature(const LintInput& input, Findings& findings) {
  std::set<std::string> seen;
  for (const SignatureRecord& record : input.signatures) {
    if (!record.hasName || seen.insert(record.key).second) continue;
    findings.Add(kSignatureManifestName, record.line,
                 fmt::format("The entry \"{}\" replaces an earlier one", record.key));
  }
}

void SignatureNotOnOneLine(const LintInput& input, Findings& findings) {
  for (const SignatureRecord& record : input.signatures) {
    if (!record.hasName) continue;
    if (record.signature.empty()) {
      findings.Add(kSignatureManifestName, record.line, fmt::format("The entry \"{}\" has no signature", record.key));
    } else if (record.signature.find_first_of(" \t\r\n") != std::string::npos) {
      findings.Add(
          kSignatureManifestName, record.line,
          fmt::format("The signature of \"{}\" holds blanks or line breaks and is decoded wrongly", record.key));
    }
  }
}

// The values of a subject, cut where the library cuts it.
std::vector<std::string> SubjectValues(const std::string& subject) {
  std::vector<std::string> values;
  for (size_t start = 0; start < subject.size();) {
    size_t end = std::min(subject.find_first_of("/,", start), subject.size());
    std::string pair = subject.substr(start, end - start);
    if (size_t equals = pair.find('='); equals != std::string::npos) values.push_back(pair.substr(equals + 1));
    start = end + 1;
  }
  return values;
}

void CheckSubject(const std::string& file, int line, const std::string& subject, Findings& findings) {
  for (const std::string& value : SubjectValues(subject)) {
    if (value.size() <= kLongestSubjectValue) continue;
    findings.Add(
        file, line,
        fmt::format("A value of the subject has {} bytes; {} are the most", value.size(), kLongestSubjectValue));
  }
}

void SubjectValueTooLong(const LintInput& input, Findings& findings) {
  for (const SignatureRecord& record : input.signatures) {
    CheckSubject(kSignatureManifestName, record.line, record.subject, findings);
  }
  for (const Certificate& certificate : input.certificates) {
    CheckSubject(certificate.origin(), 0, certificate.Subject(), findings);
  }
}

void SubjectNotOfACertificate(const LintInput& input, Findings& findings) {
  if (input.certificates.empty()) return;
  std::vector<CVerifier> verifiers(input.certificates.size());
  for (size_t i = 0; i < verifiers.size(); ++i) verifiers[i].LoadCert(input.certificates[i].pem().c_str());
  for (const SignatureRecord& record : input.signatures) {
    if (!record.hasName) continue;
    CertSubject subject{};
    bool readable = CVerifier::LoadSubject(subject, record.subject.c_str());
    bool known = readable && std::any_of(verifiers.begin(), verifiers.end(), [&subject](const CVerifier& verifier) {
                   return verifier.CompareSubject(subject);
                 });
    if (known) continue;
    findings.Add(
        kSignatureManifestName, record.line,
        fmt::format("The signer \"{}\" of \"{}\" is the subject of no given certificate", record.subject, record.key));
  }
}

void CertificateOutOfDates(const LintInput& input, Findings& findings) {
  std::time_t now = std::time(nullptr);
  for (const Certificate& certificate : input.certificates) {
    if (certificate.NotBefore() <= now && now <= certificate.NotAfter()) continue;
    findings.Add(certificate.origin(), 0,
                 fmt::format("The certificate is valid from {:%Y-%m-%d} to {:%Y-%m-%d}",
                             fmt::gmtime(certificate.NotBefore()), fmt::gmtime(certificate.NotAfter())));
  }
}

constexpr std::array kRules{
    LintRule{"missing-signature-manifest", Severity::kError, MissingSignatureManifest,
             "Make the bundle with \"quarvel-bundle pack\"."},
    LintRule{"unsigned-file", Severity::kError, UnsignedFile,
             "Pack the bundle again; a \"Folder\" must not end with a separator."},
    LintRule{"signature-matches-nothing", Severity::kWarning, SignatureMatchesNothing,
             "Pack the bundle again, or write \"Folder\" and \"FileName\" into the entry as the manifest does."},
    LintRule{"duplicate-signature", Severity::kError, DuplicateSignature, "Keep one entry for each file."},
    LintRule{"signature-not-on-one-line", Severity::kError, SignatureNotOnOneLine,
             "Write the signature in base64 on one line; \"quarvel-bundle pack\" does."},
    LintRule{"subject-value-too-long", Severity::kError, SubjectValueTooLong,
             "Sign with a certificate whose subject values have at most 99 bytes each."},
    LintRule{"subject-not-of-a-certificate", Severity::kError, SubjectNotOfACertificate,
             "Give the signer's certificate with --cert, or sign again with the right key."},
    LintRule{"certificate-out-of-dates", Severity::kWarning, CertificateOutOfDates,
             "Sign with a certificate that is valid; the library itself does not look at the dates."},
};

}  // namespace

std::span<const LintRule> SignatureRules() {
  return kRules;
}

}  // namespace authoring
