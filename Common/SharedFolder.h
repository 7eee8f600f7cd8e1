// A folder whose files several parties rely on at the same time, in this process and in others. A party opens the
// folder, which judges once whether it is safe to use, and joins it on behalf of the file that its own files come from,
// its source. From then on no file of the folder is replaced on behalf of another source, and none at all while a party
// holds the folder still. All of this is kept in locks of the system on a file in the folder, so that a party that dies
// leaves nothing behind; they bind this library's own code, nobody else. Any thread may use it once it has joined.
#ifndef QUARVEL_COMMON_SHAREDFOLDER_H
#define QUARVEL_COMMON_SHAREDFOLDER_H

#include <sys/stat.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "Common/FolderTree.h"

class CSharedFolder {
 public:
  // The file in the folder that carries the locks and names the sources; nothing else may be put in its place.
  static constexpr const char* kLockName = ".quarvel-lock";

  enum class Opening { kOpen, kCannotCreate, kUnsafe };

  CSharedFolder() = default;
  ~CSharedFolder() = default;
  CSharedFolder(const CSharedFolder&) = delete;
  CSharedFolder& operator=(const CSharedFolder&) = delete;

  // Opens the folder at `path`, which is created with one missing parent. `*fault` says why one is not safe.
  Opening Open(const std::string& path, std::string* fault);
  // Whether the path still leads to this very folder.
  bool IsInPlace() const;

  // Joins on behalf of the file `source`, which others are told of as `sourcePath`. Waits, for at most a minute, while
  // files are replaced for another source. Empty when it has joined, else why not.
  std::string Join(const struct stat& source, const std::string& sourcePath);
  // Another source that files were put here for earlier, as it was called then; empty when there was none.
  std::string EarlierSource() const;

  // Asked before a file that is there is replaced; may be asked again. Empty when it may be, until EndReplacing; else
  // why it must not be.
  std::string BeginReplacing();
  void EndReplacing();

  // While one lives, nobody replaces a file of the folder.
  class Hold {
   public:
    Hold() = default;
    Hold(Hold&& other) noexcept : m_folder(std::exchange(other.m_folder, nullptr)) {}
    Hold& operator=(Hold&& other) noexcept {
      std::swap(m_folder, other.m_folder);
      return *this;
    }
    ~Hold() {
      if (m_folder) m_folder->Release();
    }
    explicit operator bool() const { return m_folder != nullptr; }

   private:
    friend class CSharedFolder;
    explicit Hold(CSharedFolder* folder) : m_folder(folder) {}
    CSharedFolder* m_folder = nullptr;
  };
  // Waits, for at most a minute, for replacing that has begun. Invalid when that does not end. It must not outlive the
  // folder.
  Hold HoldStill();

  const std::string& path() const { return m_path; }
  const CFolderTree& tree() const { return m_tree; }

 private:
  bool OpenOnce(std::string* fault, Opening* opening);
  bool TakeLocks(std::string* fault);
  bool TryJoin() const;
  bool MayReplace(std::string* why) const;
  void Release();
  std::string Sources() const;
  std::string NameOf(uint64_t source) const;
  std::string InUse(const std::string& reason) const { return "Folder " + m_path + " is in use: " + reason; }

  std::string m_path;
  CFolderTree m_tree;
  UniqueFd m_lockFile;
  uint64_t m_source = 0;

  mutable std::mutex m_mutex;  // guards what follows: locks of one descriptor do not add up
  bool m_isReplacing = false;
  unsigned m_holds = 0;
};

#endif
