// The log, read back from its file the way a support engineer does.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Common/Logger_mac.h"
#include "tests/common/ScarceMemory.h"
#include "tests/support/TempFolder.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned long kNever = 3'600'000;

// A logger whose file is `log` in a folder of its own; the task sleeps unless the test gives it an interval.
struct Log {
  explicit Log(unsigned long interval = kNever, unsigned long maxSize = 1048576, unsigned long shrinkSize = 256000,
               unsigned long messageLimit = 1024)
      : path(folder / "log"), logger(0, path.c_str(), nullptr, maxSize, shrinkSize, interval, messageLimit) {}

  std::string Text() {
    logger.Flush();
    return ReadWholeFile(path);
  }
  std::vector<std::string> Messages() {
    std::vector<std::string> messages;
    std::istringstream in(Text());
    for (std::string line; std::getline(in, line);) messages.push_back(line.substr(54));
    return messages;
  }

  TempFolder folder;
  std::string path;
  CLogger logger;
};

bool WaitFor(const std::function<bool()>& condition) {
  for (int i = 0; i < 500; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// Whether that is the file, below folders that are there, which Init's arguments lead to.
bool LogsTo(const std::string& path, int flags, const char* file, const char* folder) {
  fs::create_directories(fs::absolute(path).parent_path());
  CLogger(flags, file, folder, 1048576, 256000, kNever, 1024).LogEvent("Tag", "here");
  return fs::remove(path);
}

}  // namespace

// The local time of a second as a log line has it; the year is the count since 1900.
std::string DateText(time_t second) {
  tm local = {};
  localtime_r(&second, &local);
  char text[32];
  EXPECT_EQ(strftime(text, sizeof text, "%Y%m%d|%H:%M:%S", &local), 17U);
  text[0] = '0';
  text[1] = static_cast<char>('0' + (local.tm_year / 100));
  return text;
}

TEST(Logger, WritesTheLineThatPeopleRead) {
  setenv("TZ", "Here-5:45", 1);
  tzset();
  Log log;
  time_t before = 0;
  do {  // within one second
    before = time(nullptr);
    log.logger.Close();
    fs::remove(log.path);
    log.logger.LogEvent("insStartInstall", "+penHandle=%d", 3);
    log.logger.LogErrorText("AFunctionWithALongName", -2, "it failed");
    log.logger.LogEvent(nullptr, nullptr);
  } while (time(nullptr) != before);
  char thread[9];
  snprintf(thread, sizeof thread, "%08x", static_cast<unsigned>(pthread_self()));
  const std::string head = "[" + DateText(before) + "] [" + std::string(thread) + "] ";
  EXPECT_EQ(log.Text(), head + "[insStartInstall     ] +penHandle=3\n" + head +
                            "[AFunctionWithALongNa] it failed (Error 0xfffffffe)\n" + head +
                            "[                    ] \n");
}

TEST(Logger, DateTextCountsYearsFrom1900) {
  char text[CLogger::kDateSize];
  CLogger::GenStringDate(126, 1, 9, 0, 59, 7, text);
  EXPECT_STREQ(text, "01260109|00:59:07");
}

TEST(Logger, TrimsBlanksAndReplacesCharacters) {
  char text[] = "a b\t  ";
  CLogger::RTrim(text);
  EXPECT_STREQ(text, "a b\t");
  CLogger::ReplaceChar(text, 'b', 'a');
  EXPECT_STREQ(text, "a a\t");
}

TEST(Logger, CutsMessagesAtTheLimit) {
  for (const unsigned long limit : {0ul, 1ul, 10ul, 1024ul, 5000ul}) {
    SCOPED_TRACE(limit);
    Log log(kNever, 1048576, 256000, limit);
    const std::string longText(6000, 'x');
    log.logger.LogEvent("Tag", "%s", longText.c_str());
    log.logger.LogEventText("Tag", longText.c_str());
    const std::string expected(limit > 0 ? limit - 1 : 0, 'x');
    EXPECT_EQ(log.Messages(), (std::vector{expected, expected}));
  }
}

TEST(Logger, IsSilentUntilInitAndKeepsErrno) {
  CLogger logger;
  logger.LogEvent("Tag", "nowhere");
  EXPECT_FALSE(logger.Open());
  testing::internal::CaptureStdout();
  logger.Init(0, "/proc/no/such/log", nullptr, 1, 1, kNever, 1024);
  errno = 77;
  logger.LogError("Tag", 1, "dropped");
  EXPECT_EQ(errno, 77);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Open: Error opening log file \"/proc/no/such/log\". Err=2\n");
}

TEST(Logger, EchoesTheKindsThatTheFlagsName) {
  struct Row {
    const char* name;
    int flags;
    bool out;
    bool err;
  };
  const Row rows[] = {{"events to stdout", CLogger::kEventsToStdout, true, false},
                      {"events to stderr", CLogger::kEventsToStderr, false, true},
                      {"errors to both", CLogger::kErrorsToStdout | CLogger::kErrorsToStderr, false, false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Log log;
    log.logger.Init(row.flags, log.path.c_str(), nullptr, 1048576, 256000, kNever, 1024);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    log.logger.LogEvent("Tag", "an event");
    EXPECT_EQ(testing::internal::GetCapturedStdout().ends_with("] an event\n"), row.out);
    EXPECT_EQ(testing::internal::GetCapturedStderr().ends_with("] an event\n"), row.err);
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"an event"});
  }
}

TEST(Logger, DisabledEchoesOnlyWhileAFileIsStillOpen) {
  Log log;
  log.logger.LogEvent("Tag", "in the file");
  log.logger.Init(CLogger::kNoFile | CLogger::kEventsToStdout, nullptr, nullptr, 1048576, 256000, kNever, 1024);
  testing::internal::CaptureStdout();
  log.logger.LogEvent("Tag", "echoed");
  log.logger.Close();
  log.logger.LogEvent("Tag", "nowhere");
  EXPECT_TRUE(testing::internal::GetCapturedStdout().ends_with("] echoed\n"));
  EXPECT_EQ(log.Messages(), std::vector<std::string>{"in the file"});
}

TEST(Logger, PathComesFromFlagsNameAndFolder) {
  TempFolder folder;
  const std::string home = folder.path();
  const std::string config = home + "/config";
  setenv("HOME", home.c_str(), 1);
  setenv("XDG_CONFIG_HOME", config.c_str(), 1);
  fs::current_path(folder.path());
  const std::string here = home + "/";
  struct Row {
    const char* name;
    int flags;
    const char* file;
    const char* folder;
    std::string path;
  };
  const Row rows[] = {
      {"nothing given", 0, nullptr, nullptr, here + "Tessvik.log"},
      {"bare name", 0, "a.log", nullptr, here + "a.log"},
      {"a folder without a name", 0, "logs/", nullptr, "logs/Tessvik.log"},
      {"backslash before slash", 0, "c\\x/a.log", nullptr, "c/x/a.log"},
      {"folder replaces with a drive", 0, "b/a.log", "c:\\logs\\", "c:\\logs\\a.log"},
      {"folder replaces with a share", 0, "b/a.log", "\\\\host\\logs", "\\\\host\\logs/a.log"},
      {"folder is appended, leading slash or not", 0, "b/a.log", "/c", "b/c/a.log"},
      {"documents", CLogger::kDocumentsFolder, "b/a.log", nullptr, home + "/My Papers/a.log"},
      {"documents by both bits", CLogger::kDocumentsFolder | CLogger::kUserFolder, "a.log", "/q",
       home + "/My Papers/q/a.log"},
      {"applications", CLogger::kUserFolder, "b/a.log", nullptr, home + "/Applications/a.log"},
  };
  folder.Write("config/user-dirs.dirs",
               "# XDG_DOCUMENTS_DIR=\"/x\"\nXDG_DESKTOP_DIR=\"$HOME\"\nXDG_DOCUMENTS_DIR=\"$HOME/My Papers\"\n");
  for (const Row& row : rows) EXPECT_TRUE(LogsTo(row.path, row.flags, row.file, row.folder)) << row.name;
  fs::remove(config + "/user-dirs.dirs");
  EXPECT_TRUE(LogsTo(home + "/Documents/a.log", CLogger::kDocumentsFolder, "a.log", nullptr));
  fs::current_path("/");
}

TEST(Logger, PathsHave259BytesAtMost) {
  testing::internal::CaptureStdout();
  CLogger logger(0, std::string(300, 'n').c_str(), "/", 1, 1, kNever, 1024);
  logger.Open();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Open: Error opening log file \"/" + std::string(258, 'n') + "\". Err=36\n");
}

TEST(Logger, AnOpenFileStaysInUseUntilItWasIdle) {
  Log log;
  log.logger.LogEvent("Tag", "first");
  const std::string second = log.folder / "second";
  log.logger.Init(0, second.c_str(), nullptr, 1048576, 256000, kNever, 1024);
  log.logger.LogEvent("Tag", "still the first");
  log.logger.Flush();
  EXPECT_FALSE(fs::exists(second));
  log.logger.Close();
  log.logger.LogEvent("Tag", "now the second");
  EXPECT_EQ(log.Messages().size(), 2u);
  EXPECT_TRUE(ReadWholeFile(second).ends_with("now the second\n"));
}

TEST(Logger, AnOpenFileStaysInUseWhenTheHostChangesItsFolder) {
  TempFolder folder;
  fs::create_directories(folder / "there/logs");
  fs::create_directory(folder / "logs");
  fs::current_path(folder.path());
  CLogger logger(0, "logs/log", nullptr, 10, 0, kNever, 1024);
  logger.LogEvent("Tag", "first");
  fs::current_path(folder / "there");
  logger.ShrinkLog();
  EXPECT_EQ(ReadWholeFile(folder / "logs/log"), "");
  EXPECT_FALSE(fs::exists(folder / "there/logs/log"));
  fs::current_path("/");
}

TEST(Logger, TrimsToWholeLinesAfterTheOffset) {
  Log log;
  const std::string before(256001, 'o');
  const std::string cutLine = "cut\r";
  const std::string kept(1048577 - before.size() - cutLine.size() - 1, 'k');
  std::ofstream(log.path + ".tmp") << "left by a killed process";
  std::ofstream(log.path) << before << cutLine << kept << '\n';
  log.logger.ShrinkLog();
  EXPECT_EQ(ReadWholeFile(log.path), kept + '\n');
  EXPECT_FALSE(fs::exists(log.path + ".tmp"));
  log.logger.LogEvent("Tag", "after");
  EXPECT_TRUE(log.Text().ends_with("\n") && log.Text().ends_with("after\n"));
}

TEST(Logger, LeavesAFileWithinItsBoundsAndEmptiesOneBeyondReason) {
  Log log(kNever, 100, 50);
  std::ofstream(log.path) << std::string(100, 'x');
  log.logger.ShrinkLog();
  EXPECT_EQ(fs::file_size(log.path), 100u);
  log.logger.Init(0, log.path.c_str(), nullptr, 10, 1000, kNever, 1024);
  log.logger.ShrinkLog();
  EXPECT_EQ(fs::file_size(log.path), 0u);
}

TEST(Logger, KeepsNoDescriptorOfWhatItTrimmed) {
  Log log(kNever, 200, 100);
  const auto descriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const auto before = descriptors();
  for (int i = 0; i < 10; ++i) {
    for (int line = 0; line < 5; ++line) log.logger.LogEvent("Tag", "line %d", line);
    log.logger.ShrinkLog();
    EXPECT_LE(fs::file_size(log.path), 200u);
  }
  log.logger.Close();
  EXPECT_EQ(descriptors(), before);
}

TEST(Logger, TaskTakesNoSignalsOfTheHost) {
  static std::atomic<int> handled;
  handled = 0;
  signal(SIGUSR1, [](int) { ++handled; });
  Log log(1);
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  kill(getpid(), SIGUSR1);  // now only the task could take it
  log.logger.LogEvent("Tag", "the task is at work");
  EXPECT_TRUE(WaitFor([&] { return fs::exists(log.path) && fs::file_size(log.path) > 0; }));
  EXPECT_EQ(handled, 0);
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
  EXPECT_EQ(handled, 1);
}

TEST(Logger, InitChangesAllOrNothingWhenMemoryRunsOut) {
  Log log;
  const std::string second = log.folder / "a-second-log-whose-name-takes-memory";
  int failures = 0;
  for (bool done = false; !done; ++failures) {
    log.logger.LogEvent("Tag", "line %d", failures);
    log.logger.Close();
    const ScarceMemory scarce(failures);
    done = log.logger.Init(0, second.c_str(), nullptr, 1048576, 256000, kNever, 100);
  }
  ASSERT_GT(failures, 1);
  log.logger.LogEvent("Tag", "%s", std::string(200, 'x').c_str());
  EXPECT_EQ(log.Messages().size(), static_cast<size_t>(failures));
  EXPECT_EQ(log.Messages().back(), "line " + std::to_string(failures - 1));
  EXPECT_EQ(ReadWholeFile(second).size(), 54u + 99u + 1u);
}

TEST(Logger, TaskFlushesThenTrimsAndClosesWhenIdle) {
  Log log(20, 300, 100);
  for (int i = 0; i < 10; ++i) log.logger.LogEvent("Tag", "line %d", i);
  EXPECT_TRUE(WaitFor([&] { return fs::exists(log.path) && fs::file_size(log.path) == 183; }))
      << ReadWholeFile(log.path);
  EXPECT_TRUE(ReadWholeFile(log.path).ends_with("line 9\n"));
  EXPECT_TRUE(WaitFor([&] { return log.logger.Open(); }));  // it was closed
}

TEST(Logger, DestructorWritesWhatWaits) {
  TempFolder folder;
  { CLogger(0, (folder / "log").c_str(), nullptr, 1048576, 256000, kNever, 1024).LogEvent("Tag", "last words"); }
  EXPECT_TRUE(ReadWholeFile(folder / "log").ends_with("last words\n"));
}

TEST(Logger, LinesOfThreadsNeverInterleave) {
  Log log(1);
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&log, t] {
      for (int i = 0; i < 1000; ++i) log.logger.LogEvent("Tag", "thread %d line %d.", t, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  int next[8] = {};
  for (const std::string& message : log.Messages()) {
    int thread = 0;
    int line = 0;
    ASSERT_EQ(sscanf(message.c_str(), "thread %d line %d.", &thread, &line), 2) << message;
    EXPECT_EQ(line, next[thread]++) << message;
  }
  for (const int count : next) EXPECT_EQ(count, 1000);
}
