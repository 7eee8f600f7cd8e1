// One loaded bundle: the archive unpacked into a folder of its own, its manifest as groups and packages, its signature
// records and the certificates to check them with. Once loaded, any thread may select and verify; verifications of one
// bundle wait for each other. Nothing runs beside loading or destruction.
#ifndef QUARVEL_INSTALLER_BUNDLE_BUNDLE_H
#define QUARVEL_INSTALLER_BUNDLE_BUNDLE_H

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "Common/Locker.h"
#include "installer/QuarvelPublic.h"
#include "installer/bundle/BundleModel.h"
#include "installer/bundle/Verifier.h"

class XMLElement;

// The signature of one file, as the signature manifest gives it.
struct BundleFileDRMInfo {
  std::string signature;    // base64
  std::string subjectText;  // the signer as written
  std::shared_ptr<const CertSubject>
      subject;  // the signer as compared, shared with other files' records; null when none is named
};

class CBundle {
 public:
  CBundle();
  ~CBundle();
  CBundle(const CBundle&) = delete;
  CBundle& operator=(const CBundle&) = delete;

  // Unpacks the archive and reads both manifests.
  InsResCode Load(const char* bundleFile);

  // Selections. Results point into the bundle and live as long as it does. A pen type of 0 and an empty group name
  // select everything; group names are compared without regard to letter case. Sizes are in bytes.
  bool GetPenGroups(int32_t penType, std::string groupName, std::vector<BundleGroup*>& out);
  void GetPenPackages(int32_t penType, std::string groupName, std::vector<BundlePackage*>& out, uint64_t* totalSize,
                      bool includeFirmware, bool includeOthers);
  void GetNonPenPackages(std::string groupName, std::vector<BundlePackage*>& out, uint64_t* totalSize);
  bool IsValidForPen(int32_t penType);
  static bool MatchPenType(const BundleGroup& group, int32_t penType);
  static bool CompareBndPak(const BundlePackage& a, const BundlePackage& b);
  static bool CompareBndPakRef(const BundlePackage* a, const BundlePackage* b);

  // Certificates and checks.
  InsResCode LoadVerifyingInfos(const char* const* pemTexts, int32_t count);
  void ClearVerifyingInfos();
  CVerifier* GetVerifier(const BundleFileDRMInfo* info);
  CVerifier* GetVerifier(const BundlePackage& package);
  BundleFileDRMInfo* GetDRMInfo(std::string path);
  InsResCode VerifyUpdateXML();
  InsResCode Verify();
  InsResCode Verify(BundlePackage& package);

  // Held by a caller to whom it matters that nobody else changes the certificates before it has used them.
  CLocker& verifyingLock() { return m_verifyingLock; }

  const std::string& bundleFile() const { return m_bundleFile; }
  const std::string& extractFolder() const { return m_extractFolder; }
  const std::string& description() const { return m_description; }
  const std::vector<BundleGroup>& groups() const { return m_groups; }

 private:
  InsResCode ParseBundle();
  InsResCode ParseGroup(const XMLElement* element, BundleGroup& group);
  InsResCode ParsePackage(const XMLElement* element, const std::string& folder, BundlePackage& package);
  InsResCode LoadDRM();
  // Sets the packages' file sizes; files without a known size, by their paths inside the bundle, are looked at.
  void MeasureFiles(const std::unordered_map<std::string, uint64_t>& knownSizes);

  // The check of one file of the bundle at `path` with some of the verifiers; what must exist is `mustExist`.
  using Verifiers = std::span<CVerifier* const>;
  static InsResCode Check(const std::string& path, const std::string& mustExist, const BundleFileDRMInfo* info,
                          Verifiers verifiers);
  static CVerifier* FindVerifier(const BundleFileDRMInfo* info, Verifiers verifiers);
  std::vector<CVerifier*> VerifierPointers() const;
  // Logs what a check found, if it is a failure, and hands it on. `name` is the file's path inside the bundle.
  InsResCode Judge(const char* tag, InsResCode result, const std::string& name) const;
  InsResCode VerifyPackages(const std::vector<const BundlePackage*>& packages);

  std::vector<BundleGroup> m_groups;
  std::string m_extractFolder;
  std::string m_description;
  std::string m_bundleFile;
  std::map<std::string, BundleFileDRMInfo> m_drmInfos;  // by lower-cased path inside the bundle
  CLocker m_verifyingLock;                              // guards m_verifiers and what they are doing
  std::vector<std::unique_ptr<CVerifier>> m_verifiers;  // in the order supplied
};

#endif
