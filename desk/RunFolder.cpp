#include "desk/RunFolder.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr size_t kRunsKept = 10;
constexpr std::string_view kPrefix = "run-";

fs::path StateFolder() {
  if (const char* state = getenv("XDG_STATE_HOME"); state && *state == '/') return fs::path(state) / "quarvel";
  if (const char* home = getenv("HOME"); home && *home) return fs::path(home) / ".local/state/quarvel";
  return {};
}

// Oldest first: a folder's name begins with its time.
std::vector<fs::path> Runs(const fs::path& state) {
  std::vector<fs::path> runs;
  std::error_code error;
  for (fs::directory_iterator entry(state, error), end; !error && entry != end; entry.increment(error)) {
    if (entry->path().filename().string().starts_with(kPrefix)) runs.push_back(entry->path());
  }
  std::sort(runs.begin(), runs.end());
  return runs;
}

fs::path MakeTemporary() {
  std::string pattern = fs::temp_directory_path() / "quarvel-run-XXXXXX";
  return mkdtemp(pattern.data()) ? fs::path(pattern) : fs::path();
}

}  // namespace

RunFolder RunFolder::Make() {
  fs::path state = StateFolder();
  fs::path run = state / fmt::format("{}{:%Y%m%d-%H%M%S}-{}", kPrefix, fmt::gmtime(time(nullptr)), getpid());
  std::error_code error;
  fs::create_directories(run, error);
  if (state.empty() || error) return RunFolder(MakeTemporary());
  std::vector<fs::path> runs = Runs(state);
  for (size_t i = 0; i + kRunsKept < runs.size(); ++i) fs::remove_all(runs[i], error);
  return RunFolder(run);
}

std::optional<RunFolder> RunFolder::Last() {
  std::vector<fs::path> runs = Runs(StateFolder());
  if (runs.empty()) return std::nullopt;
  return RunFolder(runs.back());
}

std::vector<RunFolder> RunFolder::All() {
  std::vector<RunFolder> all;
  for (const fs::path& run : Runs(StateFolder())) all.push_back(RunFolder(run));
  return all;
}

void RunFolder::WriteDescription(const Json& description) const {
  std::ofstream(m_path / "run.json", std::ios::binary) << ToLine(description);
}

Json RunFolder::ReadDescription() const {
  constexpr std::streamsize longest = 1 << 20;
  std::ifstream in(m_path / "run.json", std::ios::binary);
  std::string text(longest, '\0');
  in.read(text.data(), longest);
  text.resize(static_cast<size_t>(in.gcount()));
  Json description = Json::parse(text, nullptr, false);
  return description.is_object() ? description : Json::object();
}
