#include "host/Loading.h"

#include <fmt/format.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <thread>

#include "desk/Text.h"
#include "host/Progress.h"

namespace {

// Tells once a second, from the second second on, for as long as it lives.
class Ticker {
 public:
  Ticker(const Console& console, std::string what)
      : m_progress(console, 1), m_what(std::move(what)), m_thread([this](std::stop_token stop) { Tick(stop); }) {}

 private:
  void Tick(const std::stop_token& stop) {
    std::mutex lock;
    std::condition_variable_any changed;
    std::unique_lock<std::mutex> held(lock);
    for (uint64_t seconds = 1;
         !changed.wait_for(held, stop, std::chrono::seconds(1), [&] { return stop.stop_requested(); }) &&
         !stop.stop_requested();
         ++seconds) {
      if (seconds == 2) m_progress.SayIfStill(m_what);
      m_progress.Show(0, {fmt::format("{}: {}", m_what, DurationText(seconds)), DurationText(seconds)}, true);
    }
  }

  Progress m_progress;
  std::string m_what;
  std::jthread m_thread;  // last, so that it ends first
};

}  // namespace

std::shared_ptr<const LoadedBundle> LoadTelling(const Session& session, const std::string& file,
                                                const Configuration& configuration) {
  std::error_code unknown;
  uint64_t size = std::filesystem::file_size(file, unknown);
  Ticker ticker(session.console(),
                fmt::format("Unpacking and verifying {}, {}", Printable(FileNameOf(session.options().bundle)),
                            unknown ? "of unknown size" : BytesText(size)));
  return std::make_shared<const LoadedBundle>(session.log(), file, configuration);
}
