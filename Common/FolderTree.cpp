#include "Common/FolderTree.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <atomic>
#include <memory>

#include "Common/Clock.h"
#include "Common/FileUtil.h"

namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t kFileMode = 0644;  // never for others to write, whatever the host's mask is
constexpr char kPartialPrefix[] = ".quarvel-";
constexpr char kPartialSuffix[] = ".part";
constexpr int64_t kForgottenSeconds = 3600;

// Takes the first name off `path`, passing over empty ones; false at its end.
bool TakeName(std::string_view& path, std::string_view& name) {
  path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
  name = path.substr(0, path.find('/'));
  path.remove_prefix(name.size());
  return !name.empty();
}

struct CloseDir {
  void operator()(DIR* dir) const { closedir(dir); }
};

}  // namespace

bool CFolderTree::Open(const char* path, bool followLink) {
  m_fd = UniqueFd(open(path, kFolderFlags | (followLink ? 0 : O_NOFOLLOW)));
  return static_cast<bool>(m_fd);
}

const char* CFolderTree::Fault(const char* path) const {
  struct stat status {};
  if ((m_fd ? fstat(m_fd.get(), &status) : lstat(path, &status)) != 0) return "it cannot be examined";
  if (S_ISLNK(status.st_mode)) return "it is a symbolic link";
  if (!S_ISDIR(status.st_mode)) return "it is not a folder";
  if (status.st_uid != geteuid()) return "it belongs to another user";
  if (status.st_mode & (S_IWGRP | S_IWOTH)) return "others may write to it";
  return m_fd ? nullptr : "it cannot be opened";
}

std::string_view CFolderTree::FolderPart(std::string_view path) {
  const size_t cut = CFileUtil::LastSeparator(path);
  return path.substr(0, cut == std::string_view::npos ? 0 : cut);
}

bool CFolderTree::ToName(std::string_view name, char (&out)[kNameSize]) {
  if (name.size() >= kNameSize) {
    errno = ENAMETOOLONG;
    return false;
  }
  *std::copy(name.begin(), name.end(), out) = '\0';
  return true;
}

bool CFolderTree::CreateOne(std::string_view folder) const {
  while (folder.ends_with('/')) folder.remove_suffix(1);
  const size_t cut = folder.rfind('/');
  const std::string_view leaf = folder.substr(cut == std::string_view::npos ? 0 : cut + 1);
  if (leaf.empty()) return true;
  const UniqueFd parent = OpenFolder(folder.substr(0, folder.size() - leaf.size()));
  char name[kNameSize];
  return parent && ToName(leaf, name) && (mkdirat(parent.get(), name, S_IRWXU) == 0 || errno == EEXIST);
}

bool CFolderTree::Create(std::string_view folder) const {
  if (CreateOne(folder)) return true;
  const std::string_view parent = folder.substr(0, std::min(folder.rfind('/'), folder.size()));
  return errno == ENOENT && parent.size() < folder.size() && Create(parent) && CreateOne(folder);
}

UniqueFd CFolderTree::OpenFolder(std::string_view folder) const {
  UniqueFd current(openat(m_fd.get(), ".", kFolderFlags));
  std::string_view part;
  while (current && TakeName(folder, part)) {
    char name[kNameSize];
    current = UniqueFd(ToName(part, name) ? openat(current.get(), name, kFolderFlags | O_NOFOLLOW) : -1);
  }
  return current;
}

UniqueFd CFolderTree::OpenFile(std::string_view path) const {
  CFolderCursor cursor(*this);
  return cursor.OpenFile(path);
}

bool CFolderTree::Status(std::string_view path, struct stat& status) const {
  CFolderCursor cursor(*this);
  return cursor.Status(path, status);
}

uint64_t CFolderTree::FreeBytes() const {
  struct statvfs status {};
  if (fstatvfs(m_fd.get(), &status) != 0) return UINT64_MAX;
  return static_cast<uint64_t>(status.f_bavail) * status.f_frsize;
}

int CFolderCursor::At(std::string_view folder) {
  if (!m_isAt || folder != m_folder) {
    m_fd = m_tree.OpenFolder(folder);
    m_folder = folder;
    m_isAt = true;
  }
  return m_fd.get();
}

int CFolderCursor::Enter(std::string_view path, char (&leaf)[CFolderTree::kNameSize]) {
  const size_t cut = path.rfind('/') + 1;
  const int at = At(path.substr(0, cut));
  return CFolderTree::ToName(path.substr(cut), leaf) ? at : -1;
}

UniqueFd CFolderCursor::OpenFile(std::string_view path) {
  char leaf[CFolderTree::kNameSize];
  const int at = Enter(path, leaf);
  return UniqueFd(at < 0 ? -1 : openat(at, leaf, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

bool CFolderCursor::Status(std::string_view path, struct stat& status) {
  char leaf[CFolderTree::kNameSize];
  const int at = Enter(path, leaf);
  return at >= 0 && fstatat(at, leaf, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

CPartialFile::CPartialFile(int folder) : m_folder(folder) {
  static std::atomic<unsigned> counter;
  // A name can only be taken by the leftover of a process that had the same number.
  do {
    snprintf(m_name, sizeof(m_name), "%s%d-%u%s", kPartialPrefix, static_cast<int>(getpid()), counter++,
             kPartialSuffix);
    m_fd = UniqueFd(openat(folder, m_name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  } while (!m_fd && errno == EEXIST);
  m_exists = static_cast<bool>(m_fd);
}

CPartialFile::~CPartialFile() {
  if (m_exists) unlinkat(m_folder, m_name, 0);
}

bool CPartialFile::Close() {
  return close(m_fd.release()) == 0;
}

bool CPartialFile::Commit(const char* name) {
  if (renameat(m_folder, m_name, m_folder, name) != 0) return false;
  m_exists = false;
  return true;
}

bool CPartialFile::CommitNew(const char* name) {
  if (renameat2(m_folder, m_name, m_folder, name, RENAME_NOREPLACE) == 0) {
    m_exists = false;
    return true;
  }
  if (errno != EINVAL && errno != ENOSYS) return false;
  // Where the file system knows no such renaming, the name of its own stays a moment longer.
  return linkat(m_folder, m_name, m_folder, name, 0) == 0;
}

bool CPartialFile::IsNameOfOne(std::string_view name) {
  return name.starts_with(kPartialPrefix) && name.ends_with(kPartialSuffix);
}

void CPartialFile::RemoveForgotten(int folder, const std::unordered_set<std::string_view>& others) {
  UniqueFd copy(openat(folder, ".", kFolderFlags));
  const std::unique_ptr<DIR, CloseDir> dir(copy ? fdopendir(copy.get()) : nullptr);
  if (!dir) return;
  copy.release();  // the DIR's own from here on
  const int64_t now = Clock::Current().Seconds();
  while (const dirent* entry = readdir(dir.get())) {
    if (!IsNameOfOne(entry->d_name) || others.contains(entry->d_name)) continue;
    struct stat status {};
    if (fstatat(folder, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (status.st_ctime < now - kForgottenSeconds) unlinkat(folder, entry->d_name, 0);
  }
}
