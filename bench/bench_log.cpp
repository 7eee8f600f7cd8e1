// What a line of the log costs: while logging is off, and beside spdlog's basic file logger, which writes the same line
// to a file of its own. One thread and eight.
#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>

#include "Common/Logger_mac.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kTag = "insStartInstall";

// The logs live in a folder of the run's own.
class LogFolder {
 public:
  LogFolder() { fs::create_directories(m_path); }
  ~LogFolder() { fs::remove_all(m_path); }
  LogFolder(const LogFolder&) = delete;
  LogFolder& operator=(const LogFolder&) = delete;
  std::string operator/(const char* name) const { return (m_path / name).string(); }

  // Empties the logs, so that no run is slowed by what another one left.
  void Empty() const {
    for (const auto& file : fs::directory_iterator(m_path)) fs::resize_file(file, 0);
  }

 private:
  fs::path m_path = fs::temp_directory_path() / ("quarvel-bench-log-" + std::to_string(getpid()));
};

const LogFolder& Logs() {
  static const LogFolder folder;
  return folder;
}

void EmptyLogs(const benchmark::State&) {
  Logs().Empty();
}

void AtomicLoad(benchmark::State& state) {
  std::atomic<int> flag = 0;
  for (auto _ : state) benchmark::DoNotOptimize(flag.load(std::memory_order_relaxed));
}

void LineWhileOff(benchmark::State& state) {
  int i = 0;
  for (auto _ : state) g_Logger.LogEvent(kTag, "+penHandle=%d, bundleHandle=%d, group=%s", ++i, 1, "Music");
}

CLogger& OurLog() {
  static CLogger logger(0, (Logs() / "quarvel.log").c_str(), nullptr, 1048576, 256000, 1000, 1024);
  return logger;
}

void QuarvelLine(benchmark::State& state) {
  CLogger& logger = OurLog();
  int i = 0;
  for (auto _ : state) logger.LogEvent(kTag, "+penHandle=%d, bundleHandle=%d, group=%s", ++i, 1, "Music");
  state.SetItemsProcessed(state.iterations());
}

// The peer makes the same columns: date, thread, tag in 20 characters, message; it is flushed once a second too.
spdlog::logger& PeerLog() {
  static const std::shared_ptr<spdlog::logger> logger = [] {
    auto made = spdlog::basic_logger_mt(kTag, Logs() / "spdlog.log");
    made->set_pattern("[01%y%m%d|%H:%M:%S] [%8t] [%-20n] %v");
    spdlog::flush_every(std::chrono::seconds(1));
    return made;
  }();
  return *logger;
}

void SpdlogLine(benchmark::State& state) {
  spdlog::logger& logger = PeerLog();
  int i = 0;
  for (auto _ : state) logger.info("+penHandle={}, bundleHandle={}, group={}", ++i, 1, "Music");
  state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(AtomicLoad)->Name("atomic load");
BENCHMARK(LineWhileOff)->Name("logging off");
BENCHMARK(QuarvelLine)->Name("quarvel")->Threads(1)->UseRealTime()->Setup(EmptyLogs);
BENCHMARK(SpdlogLine)->Name("spdlog")->Threads(1)->UseRealTime()->Setup(EmptyLogs);
BENCHMARK(QuarvelLine)->Name("quarvel")->Threads(8)->UseRealTime()->Setup(EmptyLogs);
BENCHMARK(SpdlogLine)->Name("spdlog")->Threads(8)->UseRealTime()->Setup(EmptyLogs);

BENCHMARK_MAIN();
