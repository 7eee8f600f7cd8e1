#include "desk/RunFolder.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kPrefix = "run-";

fs::path MakeTemporary() {
  std::string pattern = fs::temp_directory_path() / "quarvel-run-XXXXXX";
  return mkdtemp(pattern.data()) ? fs::path(pattern) : fs::path();
}

// Two runs of one second in one process get a number more.
fs::path MakeBelow(const fs::path& state) {
  std::string name = fmt::format("{}{:%Y%m%d-%H%M%S}-{}", kPrefix, fmt::gmtime(time(nullptr)), getpid());
  fs::path path = state / name;
  for (int more = 1; mkdir(path.c_str(), 0700) != 0; ++more) {
    if (errno != EEXIST) return {};
    path = state / fmt::format("{}-{}", name, more);
  }
  return path;
}

int OpenFolder(const fs::path& path) {
  return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

}  // namespace

fs::path StateFolder() {
  if (const char* state = getenv("XDG_STATE_HOME"); state && *state == '/') return fs::path(state) / "quarvel";
  if (const char* home = getenv("HOME"); home && *home) return fs::path(home) / ".local/state/quarvel";
  return {};
}

RunFolder RunFolder::Make(const fs::path& state, std::string& problem) {
  std::error_code error;
  fs::path run;
  if (!state.empty()) {
    if (fs::create_directories(state, error)) fs::permissions(state, fs::perms::owner_all, error);
    run = MakeBelow(state);
    if (run.empty()) {
      problem = fmt::format("this run is not kept: no folder can be made in {} ({})", state.string(), strerror(errno));
    }
  } else {
    problem = "this run is not kept: neither XDG_STATE_HOME nor HOME names a folder";
  }
  RunFolder folder = run.empty() ? RunFolder(MakeTemporary(), false) : RunFolder(run);
  folder.Lock();
  return folder;
}

// Who asks whether it is locked holds a lock of its own for a moment, which is waited for.
void RunFolder::Lock() {
  int file = OpenFolder(m_path);
  if (file < 0) return;
  flock(file, LOCK_SH);
  m_lock = std::shared_ptr<void>(nullptr, [file](void*) { close(file); });
}

bool RunFolder::IsLocked() const {
  int file = OpenFolder(m_path);
  if (file < 0) return false;
  bool locked = flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(file);
  return locked;
}

std::vector<RunFolder> RunFolder::All(const fs::path& state) {
  std::vector<RunFolder> all;
  std::error_code error;
  for (fs::directory_iterator entry(state, error), end; !error && entry != end; entry.increment(error)) {
    if (entry->path().filename().string().starts_with(kPrefix)) all.push_back(RunFolder(entry->path()));
  }
  std::sort(all.begin(), all.end(), [](const RunFolder& a, const RunFolder& b) { return a.m_path < b.m_path; });
  return all;
}

uint64_t RunFolder::Bytes() const {
  uint64_t bytes = 0;
  std::error_code error;
  for (fs::directory_iterator entry(m_path, error), end; !error && entry != end; entry.increment(error)) {
    std::error_code unknown;
    uint64_t size = entry->is_regular_file(unknown) ? entry->file_size(unknown) : 0;
    if (!unknown) bytes += size;
  }
  return bytes;
}

// From its name, "run-20261121-083000-...": files in it may be touched later.
int64_t RunFolder::Time() const {
  std::tm parts{};
  std::string name = Name();
  if (!strptime(name.c_str(), "run-%Y%m%d-%H%M%S", &parts)) return 0;
  return timegm(&parts);
}

void RunFolder::Remove() const {
  std::error_code ignored;
  fs::remove_all(m_path, ignored);
}
