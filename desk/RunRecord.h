// What is kept of a run: what it was to do, to which pens, and what became of them. Values. A run writes them down as
// they come, one JSON object a line, in its folder's journal (desk/KeptRun.h); the journal is read back here, and the
// history's database holds the same.
#ifndef QUARVEL_DESK_RUNRECORD_H
#define QUARVEL_DESK_RUNRECORD_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "desk/Json.h"
#include "desk/LoadedBundle.h"
#include "desk/PackageList.h"
#include "desk/ResultTexts.h"

// What an install was to bring.
struct InstallOrder {
  std::string bundle;  // its whole path
  InstallChoice choice;
};
Json ToJson(const InstallOrder& order);
InstallOrder InstallOrderFrom(const Json& kept);

struct PenRecord {
  std::string id;  // as PenIdText
  std::string name;
  std::optional<int64_t> type;
  std::string firmwareBefore;  // as far as it came to be known; so is the other
  std::string firmwareAfter;
  InstallOrder order;
  std::string began;  // times as TimeText
  std::string ended;  // empty while no result is known
  InsResCode code = insSuccess;
  ExitStatus status = ExitStatus::kDone;
  std::string detail;     // what the log says of a failure
  std::string left;       // how the pen was left, in words, where it may be half-way
  std::string leftState;  // the same for programs, as NameOf
  std::string remedy;
  double seconds = 0;
  std::vector<PackageRow> packages;

  bool HasEnded() const { return !ended.empty(); }
};

struct RunRecord {
  int64_t number = 0;  // that people name it by; 0 until the database has it
  std::string folder;  // the name of its folder
  std::string program;
  std::string command;
  std::string started;
  std::string ended;
  std::optional<int64_t> status;  // the exit status; none for a run without a result
  std::string sentence;           // what stopped it before or beside its pens
  std::string bundle;
  std::optional<int64_t> bundleBytes;
  std::string bundleDigest;  // SHA-256 in hexadecimal digits; empty for a large bundle
  std::string group;
  std::string log;      // the log's file
  int64_t logFrom = 0;  // where the run's lines begin in it
  std::string trace;    // the file of its calls of the pen library; empty where none was recorded
  bool running = false;
  std::vector<PenRecord> pens;
  std::string lines;  // of the log; only where they are asked for

  // A run that was killed, or whose machine was.
  bool EndedWithoutResult() const { return !running && !status; }
  bool HasFailed() const;
};

// The record that a journal tells; nothing when it holds no beginning of a run. A last line that was cut is left out.
std::optional<RunRecord> RecordFromJournal(const std::string& file);
// One run of `quarvel history --json`.
Json ToJson(const RunRecord& run);

#endif
