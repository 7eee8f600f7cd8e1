// The log where the file system, other processes and the host are against it: lines stay whole and nobody is harmed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Common/Logger_mac.h"
#include "Common/UniqueFd.h"
#include "tests/support/TempFolder.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned long kNever = 3'600'000;

std::unique_ptr<CLogger> MakeLogger(const std::string& path, unsigned long maxSize = 1048576,
                                    unsigned long interval = kNever) {
  return std::make_unique<CLogger>(0, path.c_str(), nullptr, maxSize, maxSize / 2, interval, 1024);
}

void LogLines(CLogger& logger, int writer, int count) {
  for (int i = 0; i < count; ++i) logger.LogEvent("Tag", "writer %d line %d.", writer, i);
}

// The numbers of the lines of each writer, in the order of the file. Whatever is no whole line fails the test.
std::map<int, std::vector<int>> ReadLines(const std::string& path) {
  std::map<int, std::vector<int>> lines;
  const std::string text = ReadWholeFile(path);
  EXPECT_TRUE(text.empty() || text.ends_with(".\n"));
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    int writer = 0;
    int number = 0;
    char end = 0;
    const bool whole = line.size() > 54 && line.starts_with("[01") &&
                       sscanf(line.c_str() + 54, "writer %d line %d%c", &writer, &number, &end) == 3 && end == '.';
    EXPECT_TRUE(whole) << line;
    lines[writer].push_back(number);
  }
  return lines;
}

bool Ascends(const std::vector<int>& numbers) {
  return std::is_sorted(numbers.begin(), numbers.end());
}

// Runs `body` in a process of its own, which must end by itself, and with success, within ten seconds.
pid_t Start(const std::function<void()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    body();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  return child;
}

bool EndsWell(pid_t child) {
  int status = -1;
  for (int i = 0; i < 1000; ++i) {
    if (waitpid(child, &status, WNOHANG) == child) return status == 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  return false;
}

}  // namespace

TEST(LogHardship, ASizeLimitCutsNoLineAndSendsNoSignal) {
  TempFolder folder;
  const std::string path = folder / "log";
  const auto logger = MakeLogger(path);
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit limit = {10'000, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  LogLines(*logger, 1, 2000);
  logger->Flush();
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  const size_t room = ReadLines(path)[1].size();
  EXPECT_GT(room, 100u);
  EXPECT_LE(fs::file_size(path), 10'000u);
  LogLines(*logger, 2, 1);
  logger->Flush();
  EXPECT_EQ(ReadLines(path)[2].size(), 1u);
}

TEST(LogHardship, PathsThatTakeNoLines) {
  TempFolder folder;
  const std::string pipe = folder / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  struct Row {
    const char* name;
    std::string path;
    bool opens;
  };
  const Row rows[] = {{"a full disk", "/dev/full", true},
                      {"a folder", folder.path(), false},
                      {"a pipe that nobody reads", pipe, false},
                      {"no such folder", folder / "none/log", false}};
  for (const Row& row : rows) {
    testing::internal::CaptureStdout();
    const auto logger = MakeLogger("");
    logger->Init(0, row.path.c_str(), nullptr, 10, 5, kNever, 1024);
    LogLines(*logger, 1, 3);
    logger->ShrinkLog();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.empty(), row.opens) << row.name << ": " << out;
  }
}

TEST(LogHardship, AFolderThatVanishesAndComesBack) {
  TempFolder folder;
  const std::string path = folder.Write("logs/log", "");
  const auto logger = MakeLogger(path);
  LogLines(*logger, 1, 10);
  logger->Flush();
  fs::remove_all(folder / "logs");
  LogLines(*logger, 2, 10);
  logger->Flush();
  EXPECT_FALSE(fs::exists(path));
  fs::create_directory(folder / "logs");
  LogLines(*logger, 3, 10);
  logger->Flush();
  EXPECT_EQ(ReadLines(path)[3].size(), 10u);
}

TEST(LogHardship, ProcessesShareOneFile) {
  TempFolder folder;
  const std::string path = folder / "log";
  std::vector<pid_t> children;
  for (int writer = 0; writer < 3; ++writer) {
    children.push_back(Start([&] {
      const auto logger = MakeLogger(path, 1048576, 1);
      LogLines(*logger, writer, 3000);
    }));
  }
  for (const pid_t child : children) EXPECT_TRUE(EndsWell(child));
  auto lines = ReadLines(path);
  for (int writer = 0; writer < 3; ++writer) {
    EXPECT_EQ(lines[writer].size(), 3000u);
    EXPECT_TRUE(Ascends(lines[writer]));
  }
}

TEST(LogHardship, AProcessTrimsWhileOthersWrite) {
  TempFolder folder;
  const std::string path = folder / "log";
  std::vector<pid_t> children;
  for (int writer = 0; writer < 3; ++writer) {
    children.push_back(Start([&] {
      const auto logger = MakeLogger(path, 50'000);
      for (int round = 0; round < 100; ++round) {
        for (int i = 0; i < 30; ++i) logger->LogEvent("Tag", "writer %d line %d.", writer, round * 30 + i);
        logger->ShrinkLog();
      }
    }));
  }
  for (const pid_t child : children) EXPECT_TRUE(EndsWell(child));
  // What was written last has never been trimmed, and what is left of a writer has no gaps.
  auto lines = ReadLines(path);
  int last = 0;
  for (const auto& [writer, numbers] : lines) {
    last += numbers.back() == 2999 ? 1 : 0;
    EXPECT_EQ(numbers.back() - numbers.front() + 1, static_cast<int>(numbers.size())) << writer;
  }
  EXPECT_GE(last, 1);
}

TEST(LogHardship, WhoMayOnlyReadHoldsUpNothing) {
  TempFolder folder;
  const std::string path = folder.Write("log", "");
  const UniqueFd reader(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct flock all = {};
  all.l_type = F_RDLCK;
  ASSERT_EQ(fcntl(reader.get(), F_OFD_SETLK, &all), 0);
  ASSERT_EQ(flock(reader.get(), LOCK_EX), 0);
  const auto logger = MakeLogger(path, 1000);
  LogLines(*logger, 1, 5000);
  logger->ShrinkLog();
  EXPECT_LE(fs::file_size(path), 1000u);
  EXPECT_EQ(ReadLines(path)[1].back(), 4999);
}

TEST(LogHardship, WhoWritesHoldsUpTrimmingAlone) {
  TempFolder folder;
  const std::string path = folder.Write("log", "");
  const auto logger = MakeLogger(path, 1000);
  {
    const UniqueFd writer(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    LogLines(*logger, 1, 100);
    logger->ShrinkLog();
    EXPECT_EQ(ReadLines(path)[1].size(), 100u);
  }
  {
    const UniqueFd trimmer(open((path + ".tmp").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(flock(trimmer.get(), LOCK_EX), 0);
    logger->ShrinkLog();
    EXPECT_EQ(ReadLines(path)[1].size(), 100u) << "another process trims";
    EXPECT_TRUE(fs::exists(path + ".tmp"));
  }
  logger->ShrinkLog();
  EXPECT_LE(fs::file_size(path), 1000u);
  EXPECT_FALSE(fs::exists(path + ".tmp"));
}

TEST(LogHardship, LinesWaitInMemoryWhileAnotherProcessTrims) {
  TempFolder folder;
  const std::string path = folder.Write("log", "");
  signal(SIGIO, SIG_IGN);  // is sent to who holds a lease that somebody wants to break
  UniqueFd trimmer(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fcntl(trimmer.get(), F_SETLEASE, F_RDLCK) != 0) GTEST_SKIP() << "the file system has no leases";
  auto logger = MakeLogger(path);
  LogLines(*logger, 1, 3000);
  logger->Flush();
  EXPECT_EQ(fs::file_size(path), 0u);
  trimmer = UniqueFd();
  logger->Flush();
  EXPECT_EQ(ReadLines(path)[1].size(), 3000u);

  trimmer = UniqueFd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(fcntl(trimmer.get(), F_SETLEASE, F_RDLCK), 0);
  LogLines(*logger, 2, 50'000);  // more than is kept
  std::thread end([&trimmer] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    trimmer = UniqueFd();
  });
  LogLines(*logger, 3, 1);
  logger.reset();
  end.join();
  EXPECT_LT(ReadLines(path)[2].size(), 50'000u);
  EXPECT_EQ(ReadLines(path)[3].size(), 1u) << "the last line";
}

TEST(LogHardship, TrimmingWhileEightThreadsWrite) {
  TempFolder folder;
  const std::string path = folder / "log";
  const auto logger = MakeLogger(path, 40'000, 1);
  std::vector<std::thread> threads;
  std::atomic<int> writing = 8;
  for (int writer = 0; writer < 8; ++writer) {
    threads.emplace_back([&, writer] {
      LogLines(*logger, writer, 4000);
      --writing;
    });
  }
  while (writing > 0) logger->ShrinkLog();
  for (std::thread& thread : threads) thread.join();
  logger->ShrinkLog();
  EXPECT_LE(fs::file_size(path), 40'000u);
  for (const auto& [writer, numbers] : ReadLines(path)) {
    EXPECT_EQ(numbers.back() - numbers.front() + 1, static_cast<int>(numbers.size())) << writer;
  }
}

TEST(LogHardship, AChildForkedWhileThreadsLogEndsAndRepeatsNothing) {
  TempFolder folder;
  const std::string path = folder / "log";
  auto logger = MakeLogger(path, 100'000'000, 1);
  std::atomic<bool> stop = false;
  std::vector<std::thread> threads;
  for (int writer = 0; writer < 4; ++writer) {
    threads.emplace_back([&, writer] {
      for (int i = 0; !stop; ++i) {
        logger->LogEvent("Tag", "writer %d line %d.", writer, i);
        std::this_thread::sleep_for(std::chrono::microseconds(20));
      }
    });
  }
  for (int child = 10; child < 20; ++child) {
    EXPECT_TRUE(EndsWell(Start([&] {
      LogLines(*logger, child, 2);
      logger.reset();
    })));
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  logger.reset();
  auto lines = ReadLines(path);
  for (int writer = 0; writer < 4; ++writer) {
    EXPECT_EQ(lines[writer].back() + 1, static_cast<int>(lines[writer].size()));
    EXPECT_TRUE(Ascends(lines[writer]));
  }
  for (int child = 10; child < 20; ++child) EXPECT_EQ(lines[child], (std::vector{0, 1}));
}
