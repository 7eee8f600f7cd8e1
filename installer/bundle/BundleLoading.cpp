// Creating, loading and releasing a bundle.
#include <sys/stat.h>

#include <algorithm>

#include "Common/FileUtil.h"
#include "Common/Logger_mac.h"
#include "Common/Workers.h"
#include "Common/Zip.h"
#include "installer/bundle/Bundle.h"

namespace {

// 0 when there is no such file.
uint64_t SizeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

int32_t LowBits(uint64_t size) {
  return static_cast<int32_t>(static_cast<uint32_t>(size));
}

}  // namespace

CBundle::CBundle() = default;

CBundle::~CBundle() {
  ClearVerifyingInfos();
}

InsResCode CBundle::Load(const char* bundleFile) {
  const char* path = bundleFile ? bundleFile : "";
  struct stat status {};
  if (stat(path, &status) != 0) {
    g_Logger.LogEvent("Load", "Cannot open %s file", path);
    return insFileNotFound;
  }

  // An unchanged file always maps to the same folder, a changed one to another.
  const auto size = static_cast<uint64_t>(status.st_size);
  const auto seconds = static_cast<uint32_t>(status.st_mtime);
  char folder[CFileUtil::kPathSize];
  CFileUtil::GetTempFilePath(folder, sizeof(folder), "%u_%llu", static_cast<unsigned>(size & 0xffffffff),
                             static_cast<unsigned long long>(uint64_t{seconds} << 32 | size >> 32));
  m_extractFolder = folder;
  m_bundleFile = path;

  CZip::KeptFiles kept;
  const int32_t zipResult = CZip::ExtractZip(path, folder, true, &g_Logger, CZip::kOwnFolder, &kept);
  if (zipResult != 0) {
    g_Logger.LogEvent("Load", "Extracting %s to %s failed. ZipErr=%d", path, folder, zipResult);
    return insExtractFailed;
  }
  const InsResCode result = ParseBundle();
  if (result == insSuccess) MeasureFiles(kept);
  return result;
}

void CBundle::MeasureFiles(const std::unordered_map<std::string, uint64_t>& knownSizes) {
  std::vector<BundlePackage*> packages;
  for (BundleGroup& group : m_groups) {
    for (BundlePackage& package : group.packages) packages.push_back(&package);
  }
  const auto measure = [&](BundlePackage& package) {
    const size_t folder = m_extractFolder.size() + 1;
    const auto known = knownSizes.find(package.localPath.substr(std::min(folder, package.localPath.size())));
    package.fileSize = LowBits(known == knownSizes.end() ? SizeOf(package.localPath) : known->second);
  };
  constexpr size_t kShare = 256;
  CWorkers::Share((packages.size() + kShare - 1) / kShare, [&](size_t share) {
    const size_t end = std::min(packages.size(), (share + 1) * kShare);
    for (size_t i = share * kShare; i < end; ++i) measure(*packages[i]);
  });
}
