#include "desk/History.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <set>
#include <utility>

#include "desk/HistoryDatabase.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kFile = "history.db";

// The run's own lines of the log: the last of them, when there are very many.
std::string LinesOf(const RunRecord& run) {
  constexpr uint64_t most = 8 << 20;
  constexpr size_t kept = 256 << 10;
  std::error_code error;
  if (!fs::is_regular_file(run.log, error)) return "";
  uint64_t size = fs::file_size(run.log, error);
  if (error) return "";
  auto from = static_cast<uint64_t>(run.logFrom);
  if (from > size) from = 0;  // it was trimmed
  if (size - from > most) from = size - most;
  std::string text(static_cast<size_t>(size - from), '\0');
  std::ifstream in(run.log, std::ios::binary);
  in.seekg(static_cast<std::streamoff>(from));
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(in.gcount()));
  if (text.size() <= kept) return text;
  return text.substr(text.find('\n', text.size() - kept) + 1);
}

// The library writes its log a second late, while its process lives.
bool IsQuiet(const RunFolder& folder) {
  std::error_code error;
  auto touched = fs::last_write_time(folder.JournalFile(), error);
  return error || fs::file_time_type::clock::now() - touched > std::chrono::seconds(2);
}

int64_t NumberFrom(const char* variable, int64_t usual, std::string& problem) {
  const char* text = getenv(variable);
  if (!text || !*text) return usual;
  std::string_view whole(text);
  int64_t number = 0;
  auto [end, error] = std::from_chars(whole.data(), whole.data() + whole.size(), number);
  if (error == std::errc() && end == whole.data() + whole.size() && number >= 0) return number;
  problem = fmt::format("{} is \"{}\", which is no number; {} is taken", variable, text, usual);
  return usual;
}

bool TellsOf(const RunRecord& run, const std::vector<std::string>& pens) {
  return std::any_of(run.pens.begin(), run.pens.end(), [&pens](const PenRecord& pen) {
    return std::find(pens.begin(), pens.end(), pen.id) != pens.end();
  });
}

}  // namespace

bool HistoryFilter::Admits(const RunRecord& run) const {
  if (number && run.number != *number) return false;
  if (run.started < since || (failed && !run.HasFailed())) return false;
  if (!readers && (run.command == "verify" || run.command == "plan")) return false;
  return pens.empty() || TellsOf(run, pens);
}

HistoryBounds HistoryBounds::FromEnvironment(std::string& problem) {
  HistoryBounds bounds;
  bounds.days = NumberFrom("QUARVEL_HISTORY_DAYS", bounds.days, problem);
  bounds.bytes = NumberFrom("QUARVEL_HISTORY_BYTES", bounds.bytes, problem);
  return bounds;
}

History::History(fs::path state, HistoryBounds bounds, std::chrono::milliseconds patience)
    : m_state(std::move(state)), m_bounds(bounds), m_patience(patience) {}

History::History(std::chrono::milliseconds patience) : m_state(StateFolder()), m_patience(patience) {
  m_bounds = HistoryBounds::FromEnvironment(m_problem);
}

History::~History() = default;

void History::Tell(const std::string& problem) {
  if (m_problem.empty()) m_problem = problem;
}

std::string History::TakeProblem() {
  std::lock_guard<std::mutex> guard(m_lock);
  return std::exchange(m_problem, "");
}

RunFolder History::NewFolder() {
  std::string problem;
  RunFolder folder = RunFolder::Make(m_state, problem);
  std::lock_guard<std::mutex> guard(m_lock);
  if (!problem.empty()) Tell(problem);
  return folder;
}

std::unique_ptr<KeptRun> History::Begin(RunFolder folder, const KeptRun::Start& start, const InstallOrder& order) {
  auto run = std::make_unique<KeptRun>(*this, std::move(folder), start);
  run->Order(order);
  if (!run->Folder().IsKept()) return run;
  std::lock_guard<std::mutex> guard(m_lock);
  WithDatabase([this](HistoryDatabase& database) { CatchUp(database); });
  return run;
}

void History::TakeUp(const RunFolder& ended) {
  if (!ended.IsKept()) return;
  std::lock_guard<std::mutex> guard(m_lock);
  WithDatabase([this](HistoryDatabase& database) { CatchUp(database); });
  Prune();
}

// A damaged file is set aside once; what else goes wrong is told, and the folders keep the runs until it goes well.
template <typename Use>
bool History::WithDatabase(Use use) {
  for (bool again : {false, true}) {
    try {
      if (!m_database) m_database = std::make_unique<HistoryDatabase>(m_state / kFile, m_patience);
      use(*m_database);
      return true;
    } catch (const SqliteError& error) {
      m_database.reset();
      if (again || !error.IsDamage()) {
        Tell(fmt::format("the history cannot be written ({}); the run's folder keeps it until it can", error.what()));
        return false;
      }
      Mend();
    } catch (const NewerHistory& newer) {
      Tell(fmt::format("{}; until then the run is kept in its folder", newer.what()));
      return false;
    }
  }
  return false;
}

// Whoever else finds the damage meanwhile finds a new file afterwards. The journal goes first: left behind, it would be
// taken for the new file's.
void History::Mend() {
  int folder = open(m_state.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0 || flock(folder, LOCK_EX | LOCK_NB) != 0) {
    if (folder >= 0) close(folder);
    return;
  }
  bool sound = false;
  try {
    sound = HistoryDatabase(m_state / kFile, m_patience).IsSound();
  } catch (const SqliteError& error) {
    sound = !error.IsDamage();
  } catch (const NewerHistory&) {
    sound = true;
  }
  if (!sound) {
    std::string file = m_state / kFile;
    rename((file + "-journal").c_str(), (file + ".damaged-journal").c_str());
    if (rename(file.c_str(), (file + ".damaged").c_str()) == 0) {
      Tell("the history was damaged and is made anew from the runs' folders; what was there is now " + file +
           ".damaged");
    }
  }
  close(folder);
}

// Whether a folder is locked is asked before its journal is read, so that nothing written later is missed.
void History::CatchUp(HistoryDatabase& database) {
  std::vector<std::string> unsettled = database.Unsettled();
  std::vector<std::string> all = database.Folders();
  std::set<std::string> open(unsettled.begin(), unsettled.end());
  std::set<std::string> known(all.begin(), all.end());
  SqliteTransaction transaction = database.Begin();
  for (const RunFolder& folder : RunFolder::All(m_state)) {
    std::string name = folder.Name();
    if (known.contains(name) && !open.contains(name)) continue;
    bool locked = folder.IsLocked();
    std::optional<RunRecord> run = RecordFromJournal(folder.JournalFile());
    if (!run) continue;
    run->folder = name;
    run->lines = LinesOf(*run);
    database.Store(*run, !locked && (!run->status || IsQuiet(folder)));
    open.erase(name);
  }
  for (const std::string& gone : open) database.Settle(gone);
  transaction.Commit();
}

// The oldest go first. Those that go on stay, and the one that is just ending, which still holds its folder.
void History::Prune() {
  std::vector<RunFolder> folders = RunFolder::All(m_state);
  std::vector<uint64_t> sizes;
  std::error_code none;
  uint64_t size = fs::file_size(m_state / kFile, none);
  uint64_t total = none ? 0 : size;
  for (const RunFolder& folder : folders) total += sizes.emplace_back(folder.Bytes());
  int64_t oldest = time(nullptr) - std::min(m_bounds.days, int64_t{36500}) * 86400;
  std::vector<std::string> dropped;
  for (size_t i = 0; i < folders.size(); ++i) {
    const RunFolder& folder = folders[i];
    bool excess = total > static_cast<uint64_t>(m_bounds.bytes) || folder.Time() < oldest;
    if (!excess || folder.IsLocked()) continue;
    folder.Remove();
    total -= sizes[i];
    dropped.push_back(folder.Name());
  }
  if (!dropped.empty()) WithDatabase([&](HistoryDatabase& database) { database.Remove(dropped); });
}

std::vector<RunRecord> History::FromFolders(const HistoryFilter& filter) const {
  std::vector<RunRecord> runs;
  std::vector<RunFolder> folders = RunFolder::All(m_state);
  for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
    bool running = folder->IsLocked();
    std::optional<RunRecord> run = RecordFromJournal(folder->JournalFile());
    if (!run) continue;
    run->folder = folder->Name();
    run->running = running && !run->status;
    if (!filter.Admits(*run)) continue;
    if (filter.lines) run->lines = LinesOf(*run);
    runs.push_back(std::move(*run));
    if (filter.limit > 0 && runs.size() == filter.limit) break;
  }
  return runs;
}

// A database that can be read only still tells what it has.
std::vector<RunRecord> History::Find(const HistoryFilter& filter) {
  std::lock_guard<std::mutex> guard(m_lock);
  std::error_code none;
  if (!fs::exists(m_state, none)) return {};
  WithDatabase([this](HistoryDatabase& database) { CatchUp(database); });
  std::vector<RunRecord> runs;
  bool read = WithDatabase([&](HistoryDatabase& database) { runs = database.Find(filter); });
  if (!read) return FromFolders(filter);
  for (RunRecord& run : runs) run.running = !run.status && FolderOf(run).IsLocked();
  return runs;
}
