#include "Common/log/LogPath.h"

#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <string_view>

#include "Common/FileUtil.h"
#include "Common/Logger_mac.h"

namespace {

constexpr size_t kMaxPath = CFileUtil::kPathSize - 1;

std::string HomeFolder() {
  const char* home = secure_getenv("HOME");
  if (home && *home) return home;
  std::array<char, 4096> buffer;
  passwd entry = {};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found) return "";
  return found->pw_dir;
}

std::string ConfigFolder(const std::string& home) {
  const char* config = secure_getenv("XDG_CONFIG_HOME");
  return config && *config == '/' ? config : home + "/.config";
}

// The value of XDG_DOCUMENTS_DIR in user-dirs.dirs: a shell line whose value is absolute or begins with "$HOME/".
std::string DocumentsEntry(const std::string& home) {
  constexpr std::string_view key = "XDG_DOCUMENTS_DIR=\"";
  constexpr std::string_view homeVariable = "$HOME";
  std::ifstream in(ConfigFolder(home) + "/user-dirs.dirs");
  std::string value;
  for (std::string line; std::getline(in, line);) {
    line.erase(0, line.find_first_not_of(" \t"));
    const size_t end = line.rfind('"');
    if (line.starts_with(key) && end >= key.size()) value = line.substr(key.size(), end - key.size());
  }
  if (value.starts_with(homeVariable)) value.replace(0, homeVariable.size(), home);
  return value.starts_with('/') ? value : "";
}

std::string ExistingFolder(const std::string& path) {
  struct stat status = {};
  if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return "";
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) ? path : "";
}

// The user folder that the flags ask for; empty when they ask for none or there is none.
std::string UserFolder(int flags) {
  if (flags & CLogger::kDocumentsFolder) return DocumentsFolder();
  return flags & CLogger::kUserFolder ? ApplicationsFolder() : "";
}

bool ReplacesFolder(std::string_view folder) {
  return folder.starts_with("\\\\") || (folder.size() > 1 && folder[1] == ':');
}

}  // namespace

std::string DocumentsFolder() {
  const std::string home = HomeFolder();
  if (home.empty()) return "";
  const std::string entry = DocumentsEntry(home);
  return ExistingFolder(entry.empty() ? home + "/Documents" : entry);
}

std::string ApplicationsFolder() {
  const std::string home = HomeFolder();
  return home.empty() ? "" : ExistingFolder(home + "/Applications");
}

std::string ResolveLogPath(int flags, const char* fileName, const char* folder) {
  std::string name = fileName ? std::string(fileName).substr(0, kMaxPath) : "";
  std::string base;
  const size_t separator = CFileUtil::LastSeparator(name);
  if (separator != std::string::npos) {
    base = name.substr(0, separator);
    name.erase(0, separator + 1);
  }
  if (name.empty()) name = "Tessvik.log";

  const std::string userFolder = UserFolder(flags);
  if (!userFolder.empty()) base = userFolder;
  if (folder) base = ReplacesFolder(folder) ? folder : base + folder;
  if (base.empty()) base = WorkingFolder();
  if (!base.ends_with('/') && !base.ends_with('\\')) base += '/';
  return (base + name).substr(0, kMaxPath);
}

std::string WorkingFolder() {
  std::array<char, 4096> buffer;
  const char* folder = getcwd(buffer.data(), buffer.size());
  return folder ? std::string(folder) + "/" : "";
}
