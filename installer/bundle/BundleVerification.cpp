// Certificates, and the check of a bundle's files against them.
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <unordered_map>

#include "Common/FolderTree.h"
#include "Common/Logger_mac.h"
#include "Common/Workers.h"
#include "installer/bundle/Bundle.h"
#include "installer/bundle/BundlePaths.h"

namespace {

const CVerifier* FindVerifier(const BundleFileDRMInfo* info, const CCertificates& certificates) {
  static constexpr CertSubject kNobody{};
  if (!info) return nullptr;
  return certificates.Find(info->subject ? *info->subject : kNobody);
}

// The checks that one thread makes: a verifier runs one check at a time, so that every thread has twins of its own.
class FileChecker {
 public:
  // Both must outlive it.
  FileChecker(const CFolderTree& tree, const CCertificates& certificates)
      : m_tree(tree), m_certificates(certificates) {}

  // 0, or what is wrong with the file at this path below the folder.
  InsResCode Check(const std::string& inside, const BundleFileDRMInfo* info) {
    // What can be opened exists; only where it cannot, the file system is asked.
    const UniqueFd file = Open(inside);
    if (!file && !Exists(inside)) return insFileNotFound;
    if (const InsResCode result = CheckSigner(info)) return result;
    const bool isValid = file && TwinFor(info).VerifySignature(file.get(), info->signature.c_str());
    return isValid ? insSuccess : insBadSignature;
  }

  // The part of a check that needs no file.
  InsResCode CheckSigner(const BundleFileDRMInfo* info) const {
    if (!info) return insNoSignature;
    if (m_certificates.IsEmpty()) return insNotVerified;
    return FindVerifier(info, m_certificates) ? insSuccess : insNoCertificate;
  }

  // Invalid for a file that is not there, is no one's to follow or cannot be read.
  UniqueFd Open(const std::string& inside) {
    return inside.empty() || LeadsOut(inside) ? UniqueFd() : m_tree.OpenFile(inside);
  }

  CVerifier& TwinFor(const BundleFileDRMInfo* info) {
    const CVerifier* const verifier = FindVerifier(info, m_certificates);
    const auto found = m_twins.find(verifier);
    return found == m_twins.end() ? m_twins.emplace(verifier, verifier->Twin()).first->second : found->second;
  }

 private:
  bool Exists(const std::string& inside) {
    struct stat status {};
    return !inside.empty() && !LeadsOut(inside) && m_tree.Status(inside, status) && !S_ISLNK(status.st_mode);
  }

  CFolderCursor m_tree;
  const CCertificates& m_certificates;
  std::unordered_map<const CVerifier*, CVerifier> m_twins;
};

}  // namespace

// Puts certificates in force, also those that were loaded up to a bad one, and hands them to the caller.
InsResCode CBundle::ReplaceCertificates(const char* const* pemTexts, int32_t count, Certificates& inForce) {
  auto loaded = std::make_shared<CCertificates>();
  const bool areValid = loaded->Load(pemTexts, count);
  if (!areValid) g_Logger.LogEvent("LoadVerifyingInfos", "Loading invalid PEM certificate");
  inForce = std::move(loaded);
  const std::lock_guard lock(m_certificatesLock);
  m_certificates = inForce;
  return areValid ? insSuccess : insBadCertificate;
}

InsResCode CBundle::LoadVerifyingInfos(const char* const* pemTexts, int32_t count) {
  Certificates inForce;
  return ReplaceCertificates(pemTexts, count, inForce);
}

void CBundle::ClearVerifyingInfos() {
  const std::lock_guard lock(m_certificatesLock);
  m_certificates = std::make_shared<CCertificates>();
}

CBundle::Certificates CBundle::GetVerifyingInfos() const {
  const std::lock_guard lock(m_certificatesLock);
  return m_certificates;
}

const CVerifier* CBundle::GetVerifier(const BundleFileDRMInfo* info) const {
  return FindVerifier(info, *GetVerifyingInfos());
}

const CVerifier* CBundle::GetVerifier(const BundlePackage& package) const {
  return GetVerifier(package.drmInfo);
}

InsResCode CBundle::Judge(const char* tag, InsResCode result, const std::string& name) const {
  switch (result) {
    case insFileNotFound:
      g_Logger.LogEvent(tag, "File %s not found", name.c_str());
      break;
    case insNoSignature:
      g_Logger.LogEvent(tag, "File %s has no DRM info", name.c_str());
      break;
    case insNotVerified:
      g_Logger.LogEvent(tag, "Not yet verified %s", m_bundleFile.c_str());
      break;
    case insNoCertificate:
      g_Logger.LogEvent(tag, "Not found certificate for %s", name.c_str());
      break;
    case insBadSignature:
      g_Logger.LogEvent(tag, "File %s has invalid signature", name.c_str());
      break;
    default:
      break;
  }
  return result;
}

// What is verified must be what was parsed, so that another text under the manifest's name is as bad as a forged one.
InsResCode CBundle::VerifyUpdateXML(const CCertificates& certificates) {
  constexpr const char* kTag = "VerifyUpdateXML";
  constexpr const char* kName = "update.xml";
  // Deliberately the folder must exist, not the file: a missing manifest has an invalid signature.
  if (!m_folder || !m_folder->IsInPlace()) return Judge(kTag, insFileNotFound, kName);
  FileChecker checker(m_folder->tree(), certificates);
  const BundleFileDRMInfo* info = GetDRMInfo(kName);
  if (const InsResCode result = checker.CheckSigner(info)) return Judge(kTag, result, kName);
  FileDigest digest;
  const UniqueFd file = checker.Open(kName);
  const bool isValid = file && CVerifier::DigestFile(file.get(), digest) && digest == m_manifestDigest &&
                       checker.TwinFor(info).VerifySignature(digest, info->signature.c_str());
  return Judge(kTag, isValid ? insSuccess : insBadSignature, kName);
}

InsResCode CBundle::Verify(BundlePackage& package, const CCertificates& certificates) {
  if (!m_folder || !m_folder->IsInPlace()) return Judge("Verify", insFileNotFound, package.bundlePath);
  FileChecker checker(m_folder->tree(), certificates);
  return Judge("Verify", checker.Check(PathInside(package.bundlePath), package.drmInfo), package.bundlePath);
}

InsResCode CBundle::Verify(const CCertificates& certificates) {
  if (const InsResCode result = VerifyUpdateXML(certificates)) return result;
  std::vector<const BundlePackage*> packages;
  for (const BundleGroup& group : m_groups) {
    for (const BundlePackage& package : group.packages) packages.push_back(&package);
  }
  return VerifyPackages(packages, certificates);
}

InsResCode CBundle::Verify(const char* const* pemTexts, int32_t count) {
  Certificates mine;
  const InsResCode certified = ReplaceCertificates(pemTexts, count, mine);
  return certified == insSuccess ? Verify(*mine) : certified;
}

InsResCode CBundle::VerifyPackages(const std::vector<const BundlePackage*>& packages,
                                   const CCertificates& certificates) {
  CFirstFailure<InsResCode> failure;
  std::atomic<size_t> next = 0;
  CWorkers::Run(CWorkers::CountFor(packages.size()), [&](unsigned) {
    FileChecker checker(m_folder->tree(), certificates);
    for (size_t i = 0; (i = next++) < packages.size() && !failure.IsMoot(i);) {
      const InsResCode result = checker.Check(PathInside(packages[i]->bundlePath), packages[i]->drmInfo);
      if (result != insSuccess) failure.Report(i, result);
    }
  });
  return failure.failure() ? Judge("Verify", *failure.failure(), packages[failure.index()]->bundlePath) : insSuccess;
}

InsResCode CBundle::HoldForTransfer(BundlePackage& package, const CCertificates* certificates,
                                    CSharedFolder::Hold& hold) {
  constexpr const char* kTag = "HoldForTransfer";
  hold = m_folder->HoldStill();
  if (!hold) {
    g_Logger.LogEvent(kTag, "Folder %s is being replaced", m_extractFolder.c_str());
    return insPackageUnsigned;
  }
  if (certificates && Verify(package, *certificates) != insSuccess) return insPackageUnsigned;
  // The pen library goes by the path.
  struct stat checked {};
  struct stat sent {};
  const std::string inside = PathInside(package.bundlePath);
  const bool isThere = !inside.empty() && !LeadsOut(inside) && m_folder->tree().Status(inside, checked) &&
                       lstat(package.localPath.c_str(), &sent) == 0;
  if (isThere && checked.st_dev == sent.st_dev && checked.st_ino == sent.st_ino) return insSuccess;
  g_Logger.LogEvent(kTag, "File %s is not what was checked", package.localPath.c_str());
  return insPackageUnsigned;
}
