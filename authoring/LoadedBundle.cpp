#include "authoring/LoadedBundle.h"

#include <fmt/format.h>

#include <random>

#include "authoring/Failure.h"
#include "authoring/Manifest.h"

namespace authoring {

namespace fs = std::filesystem;

namespace {

std::string CopyWithOwnDate(const std::string& path, const std::string& copy) {
  std::error_code error;
  fs::copy_file(path, copy, error);
  if (error) {
    throw Failure(ExitStatus::kFile,
                  fmt::format("Cannot read {}: {}; name a bundle that you may read.", path, error.message()));
  }
  std::random_device random;
  SetModificationTime(copy, random() >> 1);
  return copy;
}

std::string SignerOf(const BundleFileDRMInfo* record) {
  return record ? record->subjectText : std::string();
}

}  // namespace

LoadedBundle::LoadedBundle(const std::string& path)
    : m_path(path), m_copy(CopyWithOwnDate(path, m_scratch / "bundle")), m_bundle(std::make_unique<CBundle>()) {
  m_result = m_bundle->Load(m_copy.c_str());
}

LoadedBundle::~LoadedBundle() {
  std::error_code ignored;
  fs::remove_all(ExtractionFolder(m_copy), ignored);
}

const LoadedBundle& LoadedBundle::RequireLoaded() const {
  if (m_result == insSuccess) return *this;
  ResultText text = TextOf(m_result);
  throw Failure(ExitStatus::kFile, fmt::format("{} does not load: {} ({}); \"quarvel-bundle lint\" names the cause.",
                                               m_path, text.meaning, m_result));
}

std::vector<BundlePackage*> LoadedBundle::Packages() const {
  std::vector<BundlePackage*> packages;
  m_bundle->GetPenPackages(0, "", packages, nullptr, true, true);
  return packages;
}

std::vector<FileCheck> CheckFiles(const LoadedBundle& loaded, std::span<const Certificate> certificates) {
  std::vector<const char*> pems;
  for (const Certificate& certificate : certificates) pems.push_back(certificate.pem().c_str());
  CBundle& bundle = loaded.bundle();
  InsResCode taken = bundle.LoadVerifyingInfos(pems.data(), static_cast<int32_t>(pems.size()));
  if (taken != insSuccess) {
    throw Failure(ExitStatus::kKey, fmt::format("{} ({}). {}", TextOf(taken).meaning, taken, TextOf(taken).remedy));
  }
  std::vector<FileCheck> checks{{kManifestName, SignerOf(bundle.GetDRMInfo(kManifestName)), bundle.VerifyUpdateXML()}};
  for (BundlePackage* package : loaded.Packages()) {
    checks.push_back({package->bundlePath, SignerOf(package->drmInfo), bundle.Verify(*package)});
  }
  return checks;
}

ResultText TextOf(InsResCode result) {
  switch (result) {
#define RESULT_CASE(name, value, meaning, remedy) \
  case value:                                     \
    return {meaning, remedy};
    INS_RESULT_CODES(RESULT_CASE)
#undef RESULT_CASE
    default:
      return {"an unknown result", ""};
  }
}

}  // namespace authoring
