// The tables of the history and what is asked of them. Owned by a History, which calls it under its lock. What SQLite
// refuses is thrown as a SqliteError.
#ifndef QUARVEL_DESK_HISTORYDATABASE_H
#define QUARVEL_DESK_HISTORYDATABASE_H

#include <string>
#include <vector>

#include "desk/History.h"
#include "desk/Sqlite.h"

// The database was written by a later version, which this one could only spoil.
class NewerHistory : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class HistoryDatabase {
 public:
  // The number that the schema has in the file (PRAGMA user_version). Older files are brought up to it.
  static const int kVersion;

  HistoryDatabase(const std::string& file, std::chrono::milliseconds patience);

  // For changes that belong together.
  SqliteTransaction Begin() { return SqliteTransaction(m_connection); }
  // The names of the folders whose runs may still change, and of all.
  std::vector<std::string> Unsettled() { return Names("SELECT folder FROM runs WHERE settled = 0"); }
  std::vector<std::string> Folders() { return Names("SELECT folder FROM runs"); }
  // Enters the run, or replaces what was known of it, under the number that it has. A settled one changes no more.
  void Store(const RunRecord& run, bool settled);
  void Settle(const std::string& folder);
  // Forgets runs, and gives their room back.
  void Remove(const std::vector<std::string>& folders);
  std::vector<RunRecord> Find(const HistoryFilter& filter);
  // Whether the file holds together.
  bool IsSound();

 private:
  void Migrate();
  std::vector<std::string> Names(const std::string& query);
  // The number of the run with this folder, which is entered if need be.
  int64_t NumberOf(const std::string& folder);
  void StorePens(int64_t number, const std::vector<PenRecord>& pens);
  std::vector<PenRecord> PensOf(int64_t number);
  std::vector<PackageRow> PackagesOf(int64_t pen);

  SqliteConnection m_connection;
};

#endif
