// The packages of one pen's run as the callback reported them: what was sent, what was finished, what failed. Owned by
// the run; the library never reports two packages of one pen at once, so there is no lock.
#ifndef QUARVEL_DESK_PACKAGELIST_H
#define QUARVEL_DESK_PACKAGELIST_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "desk/LogReader.h"
#include "installer/QuarvelPublic.h"

struct PackageRow {
  std::string path;  // where the package was unpacked to; tells it from others of the same file name
  std::string file;
  std::string name;
  std::string guid;
  std::string version;
  std::string group;
  std::string fileType;
  uint64_t done = 0;
  uint64_t total = 0;
  bool transferred = false;  // a part of it was sent
  int completions = 0;       // how often all its bytes were reported: skipped ones once, sent ones twice
  bool finished = false;     // the library is through with it, installed or not
  InsResCode error = insSuccess;
  // Filled by Conclude.
  std::string outcome;  // "installed", "skipped", "failed", "not finished", "not reached", "removed", "unknown"
  std::string reason;
};

class PackageList {
 public:
  // Takes a report into account and returns the package that it is about.
  PackageRow& Take(const PenUpdateProgressCallbackInfo& info);
  // Whether the package that was reported last is the one at `path`, and the library is through with it.
  bool IsFinished(std::string_view path) const {
    return !m_rows.empty() && m_rows.back().finished && m_rows.back().path == path;
  }
  // Whether the log has something to add: why a package was skipped.
  bool NeedLog() const;
  // Gives every package of an install its outcome. The reports tell a transfer from a skip: a package that is sent is
  // reported before it is through. The log adds the reason. `expected` are the packages that the run was to come to;
  // those that it did not come to are added.
  void ConcludeInstall(InsResCode result, bool forced, const CallLines& log,
                       const std::vector<PackageRow>& expected = {});
  void ConcludeRemoval();

  const std::vector<PackageRow>& Rows() const { return m_rows; }
  // The first error that was reported; 0 when there was none.
  InsResCode FirstError() const;

 private:
  PackageRow& Find(const PenUpdateProgressCallbackInfo& info);
  void AddUnreached(const std::vector<PackageRow>& expected);
  std::vector<PackageRow> m_rows;
};

// "same version already installed", from the log's "Skipped ..." line.
std::string SkipReason(std::string_view message);

#endif
