// One loaded bundle: the archive unpacked into a folder that the bundle holds open for as long as it lives, its
// manifest as groups and packages, its signature records and the certificates to check them with. Files are read
// through the held folder, never through a path. Once loaded, any thread may select and verify, also side by side.
// Nothing runs beside loading or destruction.
#ifndef QUARVEL_INSTALLER_BUNDLE_BUNDLE_H
#define QUARVEL_INSTALLER_BUNDLE_BUNDLE_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Locker.h"
#include "Common/SharedFolder.h"
#include "Common/Xml.h"
#include "Common/Zip.h"
#include "installer/QuarvelPublic.h"
#include "installer/bundle/BundleModel.h"
#include "installer/bundle/Certificates.h"
#include "installer/bundle/DeferredLog.h"
#include "installer/bundle/Verifier.h"

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

  // The certificates in force. Whoever holds them keeps them, whatever is loaded later.
  using Certificates = std::shared_ptr<const CCertificates>;
  InsResCode LoadVerifyingInfos(const char* const* pemTexts, int32_t count);
  void ClearVerifyingInfos();
  Certificates GetVerifyingInfos() const;
  const CVerifier* GetVerifier(const BundleFileDRMInfo* info) const;  // in force for as long as its certificates are
  const CVerifier* GetVerifier(const BundlePackage& package) const;
  BundleFileDRMInfo* GetDRMInfo(std::string path);

  // Checks of the manifest, of every file and of one package's, with the certificates in force or with given ones.
  InsResCode VerifyUpdateXML() { return VerifyUpdateXML(*GetVerifyingInfos()); }
  InsResCode VerifyUpdateXML(const CCertificates& certificates);
  InsResCode Verify() { return Verify(*GetVerifyingInfos()); }
  InsResCode Verify(const CCertificates& certificates);
  InsResCode Verify(BundlePackage& package) { return Verify(package, *GetVerifyingInfos()); }
  InsResCode Verify(BundlePackage& package, const CCertificates& certificates);
  // Loads certificates and checks every file with exactly these, as one operation.
  InsResCode Verify(const char* const* pemTexts, int32_t count);

  // Holds the folder still for the transfer of a package's file and makes sure that `localPath` leads to it and, where
  // `certificates` is given, that it still passes its check. Returns 0 or -300.
  InsResCode HoldForTransfer(BundlePackage& package, const CCertificates* certificates, CSharedFolder::Hold& hold);

  const std::string& bundleFile() const { return m_bundleFile; }
  const std::string& extractFolder() const { return m_extractFolder; }
  const std::string& description() const { return m_description; }
  const std::vector<BundleGroup>& groups() const { return m_groups; }

 private:
  // The steps of Load.
  int32_t OpenFolder(const struct stat& source);
  InsResCode ParseBundle();
  InsResCode LoadDRM();
  InsResCode ParseGroups(const XML& document);
  InsResCode ParseGroup(const XMLElement* element, BundleGroup& group, DeferredLog& log);
  InsResCode ParsePackage(const XMLElement* element, const std::string& folder, BundlePackage& package,
                          DeferredLog& log);
  // Hands over the text of a manifest and, as `*size`, its size without the slack: 0 for one that is missing.
  InsResCode ReadManifest(const char* tag, const char* name, Z<char>& text, size_t* size);

  // Bytes of the file at this path below the folder, 0 when there is none.
  uint64_t SizeOf(const std::string& inside) const;
  InsResCode ReplaceCertificates(const char* const* pemTexts, int32_t count, Certificates& inForce);
  // Logs what a check found, if it is a failure, and hands it on. `name` is the file's path inside the bundle.
  InsResCode Judge(const char* tag, InsResCode result, const std::string& name) const;
  InsResCode VerifyPackages(const std::vector<const BundlePackage*>& packages, const CCertificates& certificates);

  std::vector<BundleGroup> m_groups;
  std::string m_extractFolder;
  std::string m_description;
  std::string m_bundleFile;
  std::unique_ptr<CSharedFolder> m_folder;              // null before it is loaded
  CZip::KeptFiles m_keptFiles;                          // while it is loaded
  FileDigest m_manifestDigest{};                        // of the bytes of "update.xml" that were parsed
  std::map<std::string, BundleFileDRMInfo> m_drmInfos;  // by lower-cased path inside the bundle

  mutable CLocker m_certificatesLock;  // guards m_certificates; the certificates themselves never change
  Certificates m_certificates = std::make_shared<CCertificates>();
};

#endif
