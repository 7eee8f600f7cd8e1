// Creating, loading and releasing a bundle.
#include <fcntl.h>
#include <sys/stat.h>

#include "Common/FileUtil.h"
#include "Common/Logger_mac.h"
#include "installer/bundle/Bundle.h"
#include "installer/bundle/BundlePaths.h"

namespace {

// An unchanged file always maps to the same folder, a changed one to another.
std::string FolderOf(const struct stat& file) {
  const auto size = static_cast<uint64_t>(file.st_size);
  const auto seconds = static_cast<uint32_t>(file.st_mtime);
  char folder[CFileUtil::kPathSize];
  CFileUtil::GetTempFilePath(folder, sizeof(folder), "%u_%llu", static_cast<unsigned>(size & 0xffffffff),
                             static_cast<unsigned long long>(uint64_t{seconds} << 32 | size >> 32));
  return folder;
}

}  // namespace

CBundle::CBundle() = default;

CBundle::~CBundle() {
  ClearVerifyingInfos();
}

InsResCode CBundle::Load(const char* bundleFile) {
  m_bundleFile = bundleFile ? bundleFile : "";
  // Opened once: the folder's name, what is unpacked and whom others are told of are one file's.
  const UniqueFd archive(open(m_bundleFile.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (archive ? fstat(archive.get(), &status) != 0 : stat(m_bundleFile.c_str(), &status) != 0) {
    g_Logger.LogEvent("Load", "Cannot open %s file", m_bundleFile.c_str());
    return insFileNotFound;
  }
  m_extractFolder = FolderOf(status);
  int32_t zipResult = OpenFolder(status);
  if (zipResult == 0) {
    zipResult = CZip::ExtractZip(m_bundleFile.c_str(), archive.get(), *m_folder, &g_Logger, &m_keptFiles);
  }
  if (zipResult != 0) {
    g_Logger.LogEvent("Load", "Extracting %s to %s failed. ZipErr=%d", m_bundleFile.c_str(), m_extractFolder.c_str(),
                      zipResult);
    return insExtractFailed;
  }
  const InsResCode result = ParseBundle();
  m_keptFiles = {};
  return result;
}

// Opens the folder and joins those that rely on it; returns 0 or a CZip::Result.
int32_t CBundle::OpenFolder(const struct stat& source) {
  m_folder = std::make_unique<CSharedFolder>();
  std::string fault;
  switch (m_folder->Open(m_extractFolder, &fault)) {
    case CSharedFolder::Opening::kCannotCreate:
      g_Logger.LogEvent("ExtractZip", "Cannot create folder %s", m_extractFolder.c_str());
      return CZip::kNoFolder;
    case CSharedFolder::Opening::kUnsafe:
      g_Logger.LogEvent("ExtractZip", "Folder %s is not safe to use: %s", m_extractFolder.c_str(), fault.c_str());
      return CZip::kUntrustedFolder;
    case CSharedFolder::Opening::kOpen:
      break;
  }
  const std::string refusal = m_folder->Join(source, m_bundleFile);
  if (!refusal.empty()) {
    g_Logger.LogEventText("ExtractZip", refusal.c_str());
    return CZip::kFolderInUse;
  }
  const std::string earlier = m_folder->EarlierSource();
  if (!earlier.empty()) {
    g_Logger.LogEvent("Load", "Folder %s was filled from %s before. Remove the folder if a signature is invalid.",
                      m_extractFolder.c_str(), earlier.c_str());
  }
  return 0;
}

uint64_t CBundle::SizeOf(const std::string& inside) const {
  if (const auto kept = m_keptFiles.SizeOf(inside)) return *kept;
  struct stat status {};
  return !LeadsOut(inside) && m_folder->tree().Status(inside, status) ? static_cast<uint64_t>(status.st_size) : 0;
}
