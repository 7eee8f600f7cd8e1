// A host that loads and unloads the library with its log active.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "installer/QuarvelPublic.h"
#include "tests/support/TempFolder.h"

namespace fs = std::filesystem;

namespace {

constexpr int kThreads = 2;
constexpr int kCallsOfThread = 20;
constexpr int kLinesOfCycle = 1 + kThreads * kCallsOfThread;

class LoadedLibrary {
 public:
  LoadedLibrary() : m_handle(dlopen(QUARVEL_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
    if (!m_handle) throw std::runtime_error(dlerror());
  }
  ~LoadedLibrary() { dlclose(m_handle); }
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;

  template <typename Function>
  Function* Find(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(m_handle, name));
  }

 private:
  void* m_handle;
};

std::ptrdiff_t CountEntries(const char* folder) {
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

// The system lists a thread for a moment after it was joined.
std::ptrdiff_t CountThreads(std::ptrdiff_t expected) {
  std::ptrdiff_t count = 0;
  for (int i = 0; i < 500 && (count = CountEntries("/proc/self/task")) != expected; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return count;
}

// Unloads while lines wait to be written and the log's task sleeps.
void LoadLogAndUnload(const std::string& log) {
  const LoadedLibrary library;
  const auto setupLog = library.Find<decltype(insSetupLog)>("insSetupLog");
  const auto getVersion = library.Find<decltype(insGetVersion)>("insGetVersion");
  ASSERT_TRUE(setupLog && getVersion);
  setupLog(1, log.c_str(), UINT32_MAX);
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([getVersion] {
      for (int call = 0; call < kCallsOfThread; ++call) getVersion(nullptr, nullptr, 0);
    });
  }
}

}  // namespace

TEST(Unload, TwoHundredCyclesLeaveNothingAndLoseNoLine) {
  constexpr int kWarmUp = 20;
  constexpr int kCycles = 200;
  constexpr size_t kBytesOfCycle = 16;  // less than the smallest allocation, which is what a leak loses at least
  TempFolder folder;
  const std::string log = folder / "log";
  std::thread([] {}).join();  // a sanitizer may start a thread of its own beside the first
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const std::ptrdiff_t threads = CountEntries("/proc/self/task");
  for (int i = 0; i < kWarmUp; ++i) LoadLogAndUnload(log);
  const std::ptrdiff_t descriptors = CountEntries("/proc/self/fd");
  const size_t heapBytes = mallinfo2().uordblks;  // the sanitizers' allocators count nothing and find leaks themselves
  for (int i = 0; i < kCycles; ++i) LoadLogAndUnload(log);
  EXPECT_LT(mallinfo2().uordblks, heapBytes + kCycles * kBytesOfCycle);
  EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
  EXPECT_EQ(CountThreads(threads), threads);
  EXPECT_EQ(dlopen(QUARVEL_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr) << "the library was not unloaded";
  const std::string text = ReadWholeFile(log);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), (kWarmUp + kCycles) * kLinesOfCycle);
}
