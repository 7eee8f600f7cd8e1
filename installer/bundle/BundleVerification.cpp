// Certificates, and the check of a bundle's files against them.
#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <mutex>

#include "Common/FileUtil.h"
#include "Common/FolderTree.h"
#include "Common/Logger_mac.h"
#include "Common/Workers.h"
#include "installer/bundle/Bundle.h"

InsResCode CBundle::LoadVerifyingInfos(const char* const* pemTexts, int32_t count) {
  const std::lock_guard lock(m_verifyingLock);
  ClearVerifyingInfos();
  for (int32_t i = 0; i < count; ++i) {
    m_verifiers.push_back(std::make_unique<CVerifier>());
    if (pemTexts && m_verifiers.back()->LoadCert(pemTexts[i])) continue;
    g_Logger.LogEvent("LoadVerifyingInfos", "Loading invalid PEM certificate");
    return insBadCertificate;
  }
  return insSuccess;
}

void CBundle::ClearVerifyingInfos() {
  const std::lock_guard lock(m_verifyingLock);
  m_verifiers.clear();
}

std::vector<CVerifier*> CBundle::VerifierPointers() const {
  std::vector<CVerifier*> pointers;
  for (const auto& verifier : m_verifiers) pointers.push_back(verifier.get());
  return pointers;
}

CVerifier* CBundle::FindVerifier(const BundleFileDRMInfo* info, Verifiers verifiers) {
  static constexpr CertSubject kNobody{};
  if (!info) return nullptr;
  const CertSubject& subject = info->subject ? *info->subject : kNobody;
  const auto found = std::find_if(verifiers.begin(), verifiers.end(),
                                  [&subject](const CVerifier* verifier) { return verifier->CompareSubject(subject); });
  return found == verifiers.end() ? nullptr : *found;
}

CVerifier* CBundle::GetVerifier(const BundleFileDRMInfo* info) {
  return FindVerifier(info, VerifierPointers());
}

CVerifier* CBundle::GetVerifier(const BundlePackage& package) {
  return GetVerifier(package.drmInfo);
}

InsResCode CBundle::Check(const std::string& path, const std::string& mustExist, const BundleFileDRMInfo* info,
                          Verifiers verifiers) {
  // What can be opened exists; only where it cannot, the file system is asked. A pipe must not keep the caller waiting.
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file && !CFileUtil::FileExists(mustExist.c_str())) return insFileNotFound;
  if (!info) return insNoSignature;
  if (verifiers.empty()) return insNotVerified;
  CVerifier* verifier = FindVerifier(info, verifiers);
  if (!verifier) return insNoCertificate;
  const bool isValid = file && verifier->VerifySignature(file.get(), info->signature.c_str());
  return isValid ? insSuccess : insBadSignature;
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

InsResCode CBundle::VerifyUpdateXML() {
  const std::lock_guard lock(m_verifyingLock);
  const BundleFileDRMInfo* info = GetDRMInfo("update.xml");
  // Deliberately the folder must exist, not the file: a missing manifest has an invalid signature.
  const InsResCode result = Check(m_extractFolder + "/update.xml", m_extractFolder, info, VerifierPointers());
  return Judge("VerifyUpdateXML", result, "update.xml");
}

InsResCode CBundle::Verify(BundlePackage& package) {
  const std::lock_guard lock(m_verifyingLock);
  const InsResCode result = Check(package.localPath, package.localPath, package.drmInfo, VerifierPointers());
  return Judge("Verify", result, package.bundlePath);
}

InsResCode CBundle::Verify() {
  const std::lock_guard lock(m_verifyingLock);
  if (const InsResCode result = VerifyUpdateXML()) return result;
  std::vector<const BundlePackage*> packages;
  for (const BundleGroup& group : m_groups) {
    for (const BundlePackage& package : group.packages) packages.push_back(&package);
  }
  return VerifyPackages(packages);
}

InsResCode CBundle::VerifyPackages(const std::vector<const BundlePackage*>& packages) {
  CFirstFailure<InsResCode> failure;
  std::atomic<size_t> next = 0;
  CWorkers::Run(CWorkers::CountFor(packages.size()), [&](unsigned worker) {
    // One verifier runs one check at a time: the first worker has the bundle's own, the others have twins of them.
    std::vector<CVerifier> twins;
    std::vector<CVerifier*> verifiers = VerifierPointers();
    if (worker > 0) {
      for (const CVerifier* verifier : verifiers) twins.push_back(verifier->Twin());
      std::transform(twins.begin(), twins.end(), verifiers.begin(), [](CVerifier& twin) { return &twin; });
    }
    for (size_t i = 0; (i = next++) < packages.size() && !failure.IsMoot(i);) {
      const BundlePackage& package = *packages[i];
      const InsResCode result = Check(package.localPath, package.localPath, package.drmInfo, verifiers);
      if (result != insSuccess) failure.Report(i, result);
    }
  });
  return failure.failure() ? Judge("Verify", *failure.failure(), packages[failure.index()]->bundlePath) : insSuccess;
}
