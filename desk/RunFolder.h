// The folder in which a run leaves what is kept of it: its journal, its log, its events and its trace. Folders stand
// below the state folder, one a run, named by time, and are their owner's alone. While its run goes on a folder is
// locked, so that others can tell a run that goes on from one that was killed. A value; whoever made the folder holds
// the lock until the last copy is gone.
#ifndef QUARVEL_DESK_RUNFOLDER_H
#define QUARVEL_DESK_RUNFOLDER_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

class RunFolder {
 public:
  // Makes and locks a new folder. Where none can be made below `state`, one in the temporary folder serves, which is
  // kept by nobody; IsKept tells, and `problem` why.
  static RunFolder Make(const std::filesystem::path& state, std::string& problem);
  // All that are kept, oldest first; nothing when the state folder cannot be read.
  static std::vector<RunFolder> All(const std::filesystem::path& state);
  static RunFolder Named(const std::filesystem::path& state, const std::string& name) {
    return RunFolder(state / name);
  }

  std::string JournalFile() const { return m_path / "run.jsonl"; }
  std::string EventsFile() const { return m_path / "events.jsonl"; }
  std::string LogFile() const { return m_path / "quarvel.log"; }
  std::string TraceFile() const { return m_path / "trace.jsonl"; }
  std::string Name() const { return m_path.filename(); }

  bool IsKept() const { return m_kept; }
  // Whether its run goes on, in this process or another.
  bool IsLocked() const;
  uint64_t Bytes() const;
  // When it was made, in seconds since the epoch.
  int64_t Time() const;
  // Removes it with all that is in it.
  void Remove() const;

 private:
  explicit RunFolder(std::filesystem::path path, bool kept = true) : m_path(std::move(path)), m_kept(kept) {}
  void Lock();

  std::filesystem::path m_path;
  bool m_kept;
  std::shared_ptr<void> m_lock;
};

// Where programs of a desk keep what outlives them: quarvel below XDG_STATE_HOME, or below ~/.local/state. Empty when
// neither is known.
std::filesystem::path StateFolder();

#endif
