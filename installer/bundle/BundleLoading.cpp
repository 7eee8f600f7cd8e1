// Creating, loading and releasing a bundle.
#include <sys/stat.h>

#include "Common/FileUtil.h"
#include "Common/Logger_mac.h"
#include "Common/Zip.h"
#include "installer/bundle/Bundle.h"

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

  const int32_t zipResult = CZip::ExtractZip(path, folder, true, &g_Logger, CZip::kOwnFolder);
  if (zipResult != 0) {
    g_Logger.LogEvent("Load", "Extracting %s to %s failed. ZipErr=%d", path, folder, zipResult);
    return insExtractFailed;
  }
  return ParseBundle();
}
