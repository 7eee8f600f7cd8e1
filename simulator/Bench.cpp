#include "simulator/Bench.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <utility>

#include "simulator/Problem.h"
#include "simulator/SimClock.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr const char* kStateFile = "bench.state";
constexpr const char* kLockFile = ".lock";

std::mutex g_folderLock;
std::string g_folder;

// What a pen's file was read as, for as long as it stays the same file.
struct CachedPen {
  ino_t inode = 0;
  off_t size = 0;
  timespec changed{};
  PenPointer pen{};
};

std::mutex g_cacheLock;
std::map<std::string, CachedPen> g_cache;

[[noreturn]] void FailFolder(const fs::path& path, const char* what) {
  throw Problem(pbErrFolder, fmt::format("{} cannot be {}: {}", path.string(), what, std::strerror(errno)));
}

std::string ReadText(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

Json ParseJson(const fs::path& file) {
  Json json = Json::parse(ReadText(file), nullptr, false);
  if (json.is_discarded()) throw Problem(pbErrPenFile, fmt::format("{} is not JSON", file.string()));
  return json;
}

PenPointer ReadPenFile(const fs::path& file) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) FailFolder(file, "read");
  const std::lock_guard lock(g_cacheLock);
  CachedPen& cached = g_cache[file.string()];
  const bool same = cached.pen && cached.inode == status.st_ino && cached.size == status.st_size &&
                    cached.changed.tv_sec == status.st_mtim.tv_sec && cached.changed.tv_nsec == status.st_mtim.tv_nsec;
  if (same) return cached.pen;
  try {
    cached = {status.st_ino, status.st_size, status.st_mtim, std::make_shared<const Pen>(PenFromJson(ParseJson(file)))};
  } catch (const Problem& problem) {
    throw Problem(problem.error(), fmt::format("{}: {}", file.string(), problem.what()));
  }
  return cached.pen;
}

// Replaces a file whole: a reader sees the old text or the new one.
void ReplaceFile(const fs::path& file, const std::string& text) {
  const fs::path next = file.string() + ".new";
  {
    std::ofstream out(next, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out.flush()) FailFolder(next, "written");
  }
  if (rename(next.c_str(), file.c_str()) != 0) FailFolder(file, "replaced");
}

fs::path PenFile(const fs::path& folder, uint64_t id) {
  return folder / (IdText(id) + ".json");
}

std::vector<PenPointer> ReadPens(const fs::path& folder) {
  std::vector<PenPointer> pens;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ".json") pens.push_back(ReadPenFile(entry.path()));
  }
  std::sort(pens.begin(), pens.end(), [](const PenPointer& a, const PenPointer& b) { return a->id < b->id; });
  return pens;
}

// Whether something is due to happen to the pen.
bool IsDue(const Pen& pen, int64_t now) {
  if (pen.connected && pen.handle == 0) return true;  // a pen that was written by hand
  return !pen.schedule.empty() && pen.schedule.front().at <= now;
}

BenchState ReadState(const fs::path& file) {
  BenchState state;
  if (!fs::exists(file)) return state;
  const Json json = ParseJson(file);
  state.nextHandle = json.value("nextHandle", 1);
  state.trace = json.value("trace", "");
  for (const Json& fault : json.value("faults", Json::array())) state.faults.push_back(FaultFromJson(fault));
  return state;
}

fs::path EnvironmentFolder() {
  const auto variable = [](const char* name) {
    const char* value = std::getenv(name);
    return fs::path(value ? value : "");
  };
  if (const fs::path folder = variable("TESSVIK_SIM_DIR"); !folder.empty()) return folder;
  fs::path state = variable("XDG_STATE_HOME");
  if (state.empty()) state = variable("HOME") / ".local" / "state";
  return state / "tessvik-sim" / "pens";
}

}  // namespace

std::filesystem::path PenFolder() {
  const std::lock_guard lock(g_folderLock);
  return g_folder.empty() ? EnvironmentFolder() : fs::path(g_folder);
}

void SetPenFolder(const std::string& folder) {
  const std::lock_guard lock(g_folderLock);
  g_folder = folder;
}

BenchState PeekState() {
  return ReadState(PenFolder() / kStateFile);
}

std::vector<PenPointer> PeekPens() {
  const fs::path folder = PenFolder();
  const int64_t now = Now();
  std::vector<PenPointer> pens;
  {
    // A folder whose files are replaced while it is read may hide one of them.
    const FileLock lock(folder / kLockFile, FileLock::Wait::kForeverShared);
    pens = ReadPens(folder);
  }
  if (std::none_of(pens.begin(), pens.end(), [now](const PenPointer& pen) { return IsDue(*pen, now); })) return pens;
  pens.clear();
  Bench bench;
  for (const Pen& pen : bench.pens()) pens.push_back(std::make_shared<const Pen>(pen));
  return pens;
}

PenPointer PeekOnBus(int32_t handle) {
  for (PenPointer& pen : PeekPens()) {
    if (handle != 0 && pen->connected && pen->handle == handle) return pen;
  }
  throw Problem(pbErrHandle);
}

FileLock::FileLock(const std::filesystem::path& file, Wait wait) {
  std::error_code ignored;
  fs::create_directories(file.parent_path(), ignored);
  m_descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (m_descriptor < 0) FailFolder(file, "opened");
  const int operation = wait == Wait::kForeverShared ? LOCK_SH : LOCK_EX | (wait == Wait::kNot ? LOCK_NB : 0);
  int result = 0;
  do {
    result = flock(m_descriptor, operation);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return;
  close(m_descriptor);
  m_descriptor = -1;
}

FileLock::~FileLock() {
  if (m_descriptor >= 0) close(m_descriptor);
}

FileLock::FileLock(FileLock&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
  std::swap(m_descriptor, other.m_descriptor);
  return *this;
}

Bench::Bench() : m_folder(PenFolder()), m_lock(m_folder / kLockFile, FileLock::Wait::kForever) {
  Load();
}

void Bench::Load() {
  m_state = ReadState(m_folder / kStateFile);
  for (const PenPointer& pen : ReadPens(m_folder)) m_pens.push_back(*pen);
  const int64_t now = Now();
  for (Pen& pen : m_pens) {
    if (LetTimePass(pen, now)) Save(pen);
  }
}

// Does what was due until now; true when something was.
bool Bench::LetTimePass(Pen& pen, int64_t now) {
  if (!IsDue(pen, now)) return false;
  if (pen.connected && pen.handle == 0) Connect(pen);
  while (!pen.schedule.empty() && pen.schedule.front().at <= now) {
    const PenEvent event = pen.schedule.front();
    pen.schedule.erase(pen.schedule.begin());
    if (event.returns) {
      pen.mode = event.mode;
      if (!pen.settings.returnsAs.empty()) pen.reportedId = ParseId(pen.settings.returnsAs);
      Connect(pen);
    } else {
      pen.connected = false;
      pen.handle = 0;
    }
  }
  return true;
}

void Bench::Connect(Pen& pen) {
  pen.connected = true;
  pen.handle = m_state.nextHandle++;
  SaveState();
}

void Bench::PlugIn(Pen& pen) {
  pen.schedule.clear();
  pen.mode = pen.settings.startsInDownload ? "download" : "normal";
  Connect(pen);
}

Pen& Bench::OnBus(int32_t handle) {
  const auto found = std::find_if(m_pens.begin(), m_pens.end(),
                                  [handle](const Pen& pen) { return pen.connected && pen.handle == handle; });
  if (handle == 0 || found == m_pens.end()) throw Problem(pbErrHandle);
  return *found;
}

Pen* Bench::Find(uint64_t id) {
  const auto found = std::find_if(m_pens.begin(), m_pens.end(), [id](const Pen& pen) { return pen.id == id; });
  return found == m_pens.end() ? nullptr : &*found;
}

void Bench::Save(const Pen& pen) {
  ReplaceFile(PenFile(m_folder, pen.id), TextOf(PenToJson(pen)));
}

void Bench::SaveState() {
  Json json = {{"nextHandle", m_state.nextHandle}};
  for (const Fault& fault : m_state.faults) json["faults"].push_back(FaultToJson(fault));
  if (!m_state.trace.empty()) json["trace"] = m_state.trace;
  ReplaceFile(m_folder / kStateFile, TextOf(json));
}

void Bench::Add(const Pen& pen) {
  if (Find(pen.id)) throw Problem(pbErrPenExists, fmt::format("there is a pen {} already", IdText(pen.id)));
  m_pens.push_back(pen);
  Pen& added = m_pens.back();
  if (added.settings.startsInDownload) added.mode = "download";
  if (added.connected) Connect(added);
  Save(added);
}

void Bench::Remove(uint64_t id) {
  if (!Find(id)) throw Problem(pbErrNoPen, fmt::format("there is no pen {}", IdText(id)));
  fs::remove(PenFile(m_folder, id));
  std::erase_if(m_pens, [id](const Pen& pen) { return pen.id == id; });
}

}  // namespace sim
