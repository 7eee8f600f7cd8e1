#include "Common/FileUtil.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};
struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};

// Creates one folder. The root, which a cut leaves empty, is always there.
bool MakeFolder(const std::string& path) {
  if (path.empty() || mkdir(path.c_str(), 0700) == 0) return true;
  struct stat status {};
  return errno == EEXIST && stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// True when the entry is gone, and for one whose status cannot be read. A symbolic link goes, never what it names.
bool RemoveEntry(const std::string& path, bool flag) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return true;
  return S_ISDIR(status.st_mode) ? CFileUtil::RemoveFolder(path.c_str(), flag) : unlink(path.c_str()) == 0;
}

bool IsSelfOrParent(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

}  // namespace

bool CFileUtil::CreateFolder(const char* path, bool withParent) {
  if (!path || !*path) return false;
  const size_t separator = LastSeparator(path);
  if (separator == std::string_view::npos) return true;
  const std::string folder(path, separator);
  if (withParent && !folder.empty() && !CreateFolder(folder.c_str(), false)) return false;
  return MakeFolder(folder);
}

bool CFileUtil::RemoveFolder(const char* path, bool flag) {
  if (!path) return false;
  std::unique_ptr<DIR, CloseFolder> folder(opendir(path));
  if (!folder) return false;
  while (const dirent* entry = readdir(folder.get())) {
    if (IsSelfOrParent(entry->d_name)) continue;
    if (!RemoveEntry(std::string(path) + "/" + entry->d_name, flag)) break;
  }
  folder.reset();
  return rmdir(path) == 0;
}

int CFileUtil::GetTempFilePath(char* out, int outSize, const char* format, ...) {
  std::array<char, kPathSize> name{};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(name.data(), name.size(), format, arguments);
  va_end(arguments);
  return std::snprintf(out, static_cast<size_t>(std::max(outSize, 0)), "/tmp/%s", name.data());
}

size_t CFileUtil::LastSeparator(std::string_view path) {
  const size_t backslash = path.rfind('\\');
  return backslash != std::string_view::npos ? backslash : path.rfind('/');
}

bool CFileUtil::GetPath(const char* path, char* out) {
  const size_t separator = path ? LastSeparator(path) : std::string_view::npos;
  if (separator == std::string_view::npos) return false;
  const size_t length = std::min<size_t>(separator + 1, kPathSize - 1);
  std::memmove(out, path, length);
  out[length] = '\0';
  return true;
}

const char* CFileUtil::GetFileName(const char* path) {
  return path ? path + LastSeparator(path) + 1 : nullptr;  // npos + 1 is 0
}

bool CFileUtil::FileExists(const char* path) {
  struct stat status {};
  return path && stat(path, &status) == 0;
}

int CFileUtil::GetModulePath(char* out) {
  // Room for the "/" and the NUL; a working directory that does not fit gives "/".
  if (!getcwd(out, kPathSize - 1)) *out = '\0';
  const size_t length = std::strlen(out);
  std::strcpy(out + length, "/");
  return static_cast<int>(length + 1);
}

int CFileUtil::ReadFile(const char* path, char* buffer, int size) {
  if (!path || !buffer || size <= 0) return 0;
  const std::unique_ptr<FILE, CloseFile> file(std::fopen(path, "rb"));
  return file ? static_cast<int>(std::fread(buffer, 1, static_cast<size_t>(size), file.get())) : 0;
}
