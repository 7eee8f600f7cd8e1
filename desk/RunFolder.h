// The folder in which a run leaves its traces for `quarvel report`: its log, its events and what it was about. They
// stand below XDG_STATE_HOME/quarvel (or ~/.local/state/quarvel), one folder a run, named by time, the newest ten kept.
#ifndef QUARVEL_DESK_RUNFOLDER_H
#define QUARVEL_DESK_RUNFOLDER_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "desk/Json.h"

class RunFolder {
 public:
  // Makes a new folder for this run and drops the oldest ones. Where none can be made, a temporary one serves.
  static RunFolder Make();
  // The newest run's folder.
  static std::optional<RunFolder> Last();
  // All that are kept, oldest first.
  static std::vector<RunFolder> All();

  std::string EventsFile() const { return m_path / "events.jsonl"; }
  std::string LogFile() const { return m_path / "quarvel.log"; }
  // What the run was about: "command", "bundle", "log", "started".
  void WriteDescription(const Json& description) const;
  // An empty object when there is none that can be read.
  Json ReadDescription() const;
  std::string Name() const { return m_path.filename(); }

 private:
  explicit RunFolder(std::filesystem::path path) : m_path(std::move(path)) {}
  std::filesystem::path m_path;
};

#endif
