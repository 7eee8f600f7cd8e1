// A folder and everything below it, reached from one descriptor and never through a symbolic link, so that nobody who
// can write elsewhere can lead a file out of it. Paths are relative to the folder, with "/" between names; names that
// would climb out ("..") are the caller's to refuse. Several threads may use one tree; a cursor belongs to one thread.
#ifndef QUARVEL_COMMON_FOLDERTREE_H
#define QUARVEL_COMMON_FOLDERTREE_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>

#include "Common/UniqueFd.h"

class CFolderTree {
 public:
  // Size of a single name's buffer, with the NUL.
  static constexpr size_t kNameSize = 256;

  // Opens the folder at `path`, following a symbolic link at its end or not. False, with errno, if there is none.
  bool Open(const char* path, bool followLink);

  // Why what stands at `path` is no safe place for a user's files: it is not a real folder, belongs to someone else or
  // can be written by others. Null when it is safe. Judges the open folder, else what hinders opening it.
  const char* Fault(const char* path) const;

  // The part of a path that CFileUtil would create as its folder: up to the last backslash, else up to the last slash,
  // without either; empty when there is neither.
  static std::string_view FolderPart(std::string_view path);

  // Copies a name for the system's calls; false, with errno, when it is longer than any file's name.
  static bool ToName(std::string_view name, char (&out)[kNameSize]);

  // Creates a folder and what is missing above it; true when it is there.
  bool Create(std::string_view folder) const;

  // A descriptor of the folder, the tree's own for "". Invalid when it is missing or lies behind a symbolic link.
  UniqueFd OpenFolder(std::string_view folder) const;

  // A descriptor of the file at `path`, for reading; invalid, with errno, when there is none. A pipe opens at once.
  UniqueFd OpenFile(std::string_view path) const;

  // The status of what is at `path` itself; false, with errno, when nothing is.
  bool Status(std::string_view path, struct stat& status) const;

  // Bytes that this user may still write to the file system.
  uint64_t FreeBytes() const;

  int fd() const { return m_fd.get(); }

 private:
  bool CreateOne(std::string_view folder) const;

  UniqueFd m_fd;
};

// The folder that is worked in, kept open as long as the next file lies there too.
class CFolderCursor {
 public:
  explicit CFolderCursor(const CFolderTree& tree) : m_tree(tree) {}

  // A descriptor of the folder, valid until the next call; -1 as for OpenFolder.
  int At(std::string_view folder);

  // As CFolderTree's.
  UniqueFd OpenFile(std::string_view path);
  bool Status(std::string_view path, struct stat& status);

 private:
  int Enter(std::string_view path, char (&leaf)[CFolderTree::kNameSize]);

  const CFolderTree& m_tree;
  std::string m_folder;
  UniqueFd m_fd;
  bool m_isAt = false;  // m_fd is m_folder's, or invalid because there is none
};

// A file that grows under a name of its own and takes its real name when it is whole; until then nobody mistakes it for
// the file, and what is there stays. Destruction without Commit drops it.
class CPartialFile {
 public:
  // Creates the file in `folder`, a descriptor that outlives this object.
  explicit CPartialFile(int folder);
  ~CPartialFile();
  CPartialFile(const CPartialFile&) = delete;
  CPartialFile& operator=(const CPartialFile&) = delete;

  // Invalid, with errno, when it could not be created.
  int fd() const { return m_fd.get(); }

  // Ends the writing; false, with errno, when some of it was lost only now.
  bool Close();
  // Gives the closed file its name, over whatever file or link has it. False, with errno, when that is not possible.
  bool Commit(const char* name);
  // The same only while nothing has that name; false, with errno EEXIST, when something has it.
  bool CommitNew(const char* name);

  // Removes partial files that were left in `folder` more than an hour ago by writers that did not live to drop them;
  // `others` are files that merely have such names.
  static void RemoveForgotten(int folder, const std::unordered_set<std::string_view>& others);

  // Whether a file of this name could be a partial one.
  static bool IsNameOfOne(std::string_view name);

 private:
  int m_folder;
  char m_name[48];
  UniqueFd m_fd;
  bool m_exists;  // under the name of its own
};

#endif
