// What is kept of runs, whatever happens to the database, to the disk and to the process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <thread>

#include "desk/HistoryDatabase.h"
#include "desk/LostPens.h"
#include "desk/PenRun.h"
#include "tests/support/TempFolder.h"

namespace {

constexpr std::chrono::milliseconds kPatience(200);
constexpr const char* kAda = "0x000000000000002a";

// How a pen's part in a run ends: with a result, or not at all.
struct PenEnd {
  uint64_t id;
  std::optional<InsResCode> code;
};

class Desk {
 public:
  explicit Desk(HistoryBounds bounds = {}) : m_bounds(bounds) {}

  std::unique_ptr<History> Open() const { return std::make_unique<History>(State(), m_bounds, kPatience); }
  std::filesystem::path State() const { return m_folder.path() / "state"; }
  std::string Database() const { return State() / "history.db"; }
  const TempFolder& folder() const { return m_folder; }

  // A run as a program does it; without a status it is killed in the middle.
  void Run(History& history, const std::vector<PenEnd>& pens, std::optional<ExitStatus> status,
           const std::string& command = "install") const {
    RunFolder folder = history.NewFolder();
    LogReader log(m_folder.Write("log", "an earlier line\n"));
    std::filesystem::remove(log.File());  // nobody waits for its lines
    auto kept = history.Begin(folder, {command, log.File(), log.Begin(), ""}, Order());
    for (const PenEnd& pen : pens) PlayPen(log, *kept, pen);
    m_folder.Write("log", "an earlier line\nits line\n");
    if (status) kept->End(*status, "");
  }

  InstallOrder Order() const {
    InstallOrder order{m_folder.Write("a.bundle", "abc"), {}};
    order.choice.group = "Notes";
    order.choice.certificates = {"/c.pem"};
    order.choice.firmware = true;
    return order;
  }

 private:
  static void PlayPen(const LogReader& log, KeptRun& kept, const PenEnd& end) {
    Job job;
    job.call = [&end](int32_t* handle, PenUpdateProgressCallback callback, void* user) {
      PenUpdateProgressCallbackInfo info{};
      info.packageFile = "/t/a.fw";
      info.fileType = "Firmware";
      info.version = "8.9";
      info.itemTotal = 10;
      for (uint64_t done : {5, 10, 10}) {
        info.itemDone = done;
        callback(*handle, &info, user);
      }
      return *end.code;
    };
    Pen pen;
    pen.id = end.id;
    pen.name = "Ada's";
    pen.type = 1;
    pen.contents = PenHoldings{"8.8", {}};
    PenRun run(pen, std::make_shared<const Job>(job), log, {&kept},
               [](const PenRun&, const PackageRow&) { return false; });
    if (end.code) return run.Execute();
    kept.OnStarted(run);
  }

  TempFolder m_folder;
  HistoryBounds m_bounds;
};

std::string Summary(const std::vector<RunRecord>& runs) {
  std::string text;
  for (const RunRecord& run : runs) {
    text += run.command + ' ' + (run.status ? std::to_string(*run.status) : run.running ? "running" : "lost");
    for (const PenRecord& pen : run.pens) {
      text += ' ' + pen.id.substr(17) + (pen.HasEnded() ? '=' + std::to_string(pen.code) : "");
    }
    text += "; ";
  }
  return text;
}

TEST(History, KeepsAllAboutARun) {
  Desk desk;
  auto history = desk.Open();
  desk.Run(*history, {{42, insSuccess}, {43, insFirmwareFailed}}, ExitStatus::kPen);
  std::vector<RunRecord> runs = history->Find({.lines = true});
  ASSERT_EQ(runs.size(), 1U);
  const RunRecord& run = runs[0];
  EXPECT_EQ(run.number, 1);
  EXPECT_EQ(run.bundle, desk.folder() / "a.bundle");
  EXPECT_EQ(run.bundleBytes, 3);
  EXPECT_EQ(run.bundleDigest, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(run.group, "Notes");
  EXPECT_EQ(run.lines, "its line\n") << "and none of an earlier run";
  EXPECT_TRUE(run.HasFailed());
  ASSERT_EQ(run.pens.size(), 2U);
  const PenRecord& pen = run.pens[0];
  EXPECT_EQ(pen.id, kAda);
  EXPECT_EQ(pen.name, "Ada's");
  EXPECT_EQ(pen.type, 1);
  EXPECT_EQ(pen.firmwareBefore + ">" + pen.firmwareAfter, "8.8>8.9");
  EXPECT_EQ(pen.order.choice.certificates, std::vector<std::string>{"/c.pem"});
  EXPECT_TRUE(pen.order.choice.firmware);
  ASSERT_EQ(pen.packages.size(), 1U);
  EXPECT_EQ(pen.packages[0].outcome, "installed");
  EXPECT_EQ(run.pens[1].code, insFirmwareFailed);
  EXPECT_EQ(run.pens[1].leftState, "gone");
  EXPECT_EQ(history->TakeProblem(), "");
  for (const std::string& file : {desk.Database(), history->FolderOf(run).JournalFile()}) {
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600)) << file;
  }
}

TEST(History, KeepsTheEndOfALongLog) {
  Desk desk;
  auto history = desk.Open();
  std::string log;
  for (int i = 0; i < 40'000; ++i) log += "line " + std::to_string(i) + '\n';
  std::string file = desk.folder().Write("long.log", log);
  history->Begin(history->NewFolder(), {"install", file, 0, ""}, {})->End(ExitStatus::kDone);
  std::string lines = history->Find({.lines = true}).at(0).lines;
  EXPECT_LE(lines.size(), 256U << 10);
  EXPECT_TRUE(lines.starts_with("line ") && lines.ends_with("line 39999\n")) << lines.substr(0, 20);
}

TEST(History, ARunShowsFromItsBeginningAndAKilledOneIsTold) {
  Desk desk;
  auto history = desk.Open();
  auto other = desk.Open();
  RunFolder folder = history->NewFolder();
  auto kept = history->Begin(folder, {"install", "", 0, ""}, {});
  EXPECT_EQ(Summary(other->Find({})), "install running; ");
  kept->EndByForce(ExitStatus::kKilled, "stopped at once");
  kept->End(ExitStatus::kDone);
  EXPECT_EQ(Summary(other->Find({})), "install 130; ") << "the first end counts";
  desk.Run(*history, {{42, insSuccess}, {43, std::nullopt}}, std::nullopt);
  EXPECT_EQ(Summary(other->Find({.failed = true})), "install lost a=0 b; install 130; ");
}

// In each row a run goes on while something is wrong, which is then put right.
TEST(History, NothingThatGoesWrongLosesARunOrStopsOne) {
  const struct {
    const char* name;
    std::function<std::function<void()>(const Desk&)> harm;  // gives what puts it right
    const char* told;
    const char* meanwhile;
    const char* after;
  } rows[] = {
      {"damaged",
       [](const Desk& desk) {
         std::ofstream(desk.Database(), std::ios::binary | std::ios::in).write("no database at all", 18);
         return std::function<void()>();
       },
       "was damaged and is made anew from the runs' folders", "install 0 b=0; install 0 a=0; ",
       "install 0 b=0; install 0 a=0; "},
      {"damaged within",
       [](const Desk& desk) {
         std::fstream file(desk.Database(), std::ios::binary | std::ios::in | std::ios::out);
         file.seekp(4096);
         file << std::string(8 * 4096, 'x');
         return std::function<void()>();
       },
       "was damaged", "install 0 b=0; install 0 a=0; ", "install 0 b=0; install 0 a=0; "},
      {"newer",
       [](const Desk& desk) {
         SqliteConnection(desk.Database(), kPatience).Execute("PRAGMA user_version = 99");
         return [&desk] { SqliteConnection(desk.Database(), kPatience).Execute("PRAGMA user_version = 1"); };
       },
       "was written by a newer quarvel", "install 0 b=0; install 0 a=0; ", "install 0 b=0; install 0 a=0; "},
      {"held by another program",
       [](const Desk& desk) {
         auto other = std::make_shared<SqliteConnection>(desk.Database(), kPatience);
         other->Execute("BEGIN EXCLUSIVE");
         return [other] { other->Execute("COMMIT"); };
       },
       "the history cannot be written (database is locked); the run's folder keeps it until it can",
       "install 0 b=0; install 0 a=0; ", "install 0 b=0; install 0 a=0; "},
      {"taken away",
       [](const Desk& desk) {
         std::filesystem::remove(desk.Database());
         return std::function<void()>();
       },
       "", "install 0 b=0; install 0 a=0; ", "install 0 b=0; install 0 a=0; "},
      {"full disk",
       [](const Desk&) {
         signal(SIGXFSZ, SIG_IGN);
         rlimit none{0, RLIM_INFINITY};
         setrlimit(RLIMIT_FSIZE, &none);
         return [] {
           rlimit all{RLIM_INFINITY, RLIM_INFINITY};
           setrlimit(RLIMIT_FSIZE, &all);
         };
       },
       "", "install 0 a=0; ", "install 0 a=0; "},
      {"a folder in the database's place",
       [](const Desk& desk) {
         std::filesystem::rename(desk.Database(), desk.Database() + ".old");
         std::filesystem::create_directory(desk.Database());
         return [&desk] {
           std::filesystem::remove(desk.Database());
           std::filesystem::rename(desk.Database() + ".old", desk.Database());
         };
       },
       "the history cannot be written (unable to open database file)", "install 0 b=0; install 0 a=0; ",
       "install 0 b=0; install 0 a=0; "},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Desk desk;
    desk.Run(*desk.Open(), {{42, insSuccess}}, ExitStatus::kDone);
    std::function<void()> repair = row.harm(desk);
    auto begin = std::chrono::steady_clock::now();
    auto history = desk.Open();
    desk.Run(*history, {{43, insSuccess}}, ExitStatus::kDone);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    std::string problem = history->TakeProblem();
    std::string meanwhile = Summary(desk.Open()->Find({}));
    if (repair) repair();
    EXPECT_EQ(problem.find(row.told) == std::string::npos ? problem : "", "");
    EXPECT_EQ(meanwhile, row.meanwhile);
    EXPECT_EQ(Summary(desk.Open()->Find({})), row.after);
  }
}

TEST(History, AStateFolderThatCannotBeWrittenIsToldAndNoMore) {
  Desk desk;
  desk.folder().Write("state", "a file");
  auto history = desk.Open();
  desk.Run(*history, {{42, insSuccess}}, ExitStatus::kDone);
  EXPECT_NE(history->TakeProblem().find("this run is not kept: no folder can be made in "), std::string::npos);
  EXPECT_TRUE(history->Find({}).empty());
}

TEST(History, ProgramsAndThreadsShareIt) {
  Desk desk;
  auto one = std::make_unique<History>(desk.State(), HistoryBounds(), std::chrono::seconds(20));
  auto two = std::make_unique<History>(desk.State(), HistoryBounds(), std::chrono::seconds(20));
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&, i] {
      History& history = i % 2 == 0 ? *one : *two;
      for (int k = 0; k < 4; ++k) {
        auto kept = history.Begin(history.NewFolder(), {"install", "", 0, ""}, {});
        kept->End(ExitStatus::kDone);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<RunRecord> runs = one->Find({});
  ASSERT_EQ(runs.size(), 24U);
  for (size_t i = 0; i < runs.size(); ++i) {
    EXPECT_EQ(runs[i].number, static_cast<int64_t>(24 - i));
    EXPECT_EQ(runs[i].status, 0);
  }
  EXPECT_EQ(one->TakeProblem() + two->TakeProblem(), "");
}

// Whatever of a journal was written when its process was killed is read, and no more.
TEST(History, AJournalThatWasCutTellsWhatItHolds) {
  Desk desk;
  auto history = desk.Open();
  desk.Run(*history, {{42, insSuccess}}, ExitStatus::kDone);
  std::string whole = ReadWholeFile(history->FolderOf(history->Find({}).at(0)).JournalFile());
  std::vector<std::string> seen;
  for (size_t size = 0; size <= whole.size(); ++size) {
    std::optional<RunRecord> run = RecordFromJournal(desk.folder().Write("cut", whole.substr(0, size)));
    std::string summary = run ? Summary({*run}) : "nothing";
    if (seen.empty() || seen.back() != summary) seen.push_back(summary);
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"nothing", "install lost; ", "install lost a; ", "install lost a=0; ",
                                            "install 0 a=0; "}));
}

// Two runs of another century, of which one goes on, and two of today.
TEST(History, IsBoundedByAgeAndSize) {
  const struct {
    HistoryBounds bounds;
    const char* kept;
  } rows[] = {{{36500, 1 << 20}, "install 0; install 0; install running; install lost; "},
              {{365, 1 << 20}, "install 0; install 0; install running; "},
              {{36500, 0}, "install 0; install running; "}};
  for (const auto& row : rows) {
    Desk desk(row.bounds);
    auto history = desk.Open();
    for (const char* name : {"run-20000101-000000-1", "run-20000101-000000-2"}) {
      desk.folder().Write("state/" + std::string(name) + "/run.jsonl", "{\"journal\":1,\"command\":\"install\"}\n");
    }
    int held = open((desk.State() / "run-20000101-000000-2").c_str(), O_RDONLY | O_DIRECTORY);
    flock(held, LOCK_SH);
    desk.Run(*history, {}, ExitStatus::kDone);
    desk.Run(*history, {}, ExitStatus::kDone);
    EXPECT_EQ(Summary(history->Find({})), row.kept);
    close(held);
  }
}

// The same from the database and, where it cannot be used, from the folders.
TEST(History, FiltersTheSameWithAndWithoutItsDatabase) {
  Desk desk;
  auto history = desk.Open();
  desk.Run(*history, {{42, insSuccess}}, ExitStatus::kDone);
  desk.Run(*history, {{42, insAppFailed}}, ExitStatus::kPen, "remove");
  desk.Run(*history, {{43, insNothingToDo}}, ExitStatus::kCurrent);
  desk.Run(*history, {}, ExitStatus::kBundle, "verify");
  desk.Run(*history, {{44, std::nullopt}}, std::nullopt, "recover");
  const struct {
    HistoryFilter filter;
    const char* runs;
  } rows[] = {{{}, "recover lost c; install 10 b=1; remove 5 a=-201; install 0 a=0; "},
              {{.limit = 1}, "recover lost c; "},
              {{.failed = true}, "recover lost c; remove 5 a=-201; "},
              {{.failed = true, .readers = true}, "recover lost c; verify 3; remove 5 a=-201; "},
              {{.pens = {kAda}}, "remove 5 a=-201; install 0 a=0; "},
              {{.pens = {kAda, "0x000000000000002b"}, .limit = 2}, "install 10 b=1; remove 5 a=-201; "},
              {{.since = "2999-01-01T00:00:00Z"}, ""}};
  for (bool database : {true, false}) {
    if (!database) SqliteConnection(desk.Database(), kPatience).Execute("PRAGMA user_version = 99");
    for (const auto& row : rows) EXPECT_EQ(Summary(desk.Open()->Find(row.filter)), row.runs) << database;
  }
}

TEST(LostPens, AreThoseWhoseLastInstallLeftThemHalfWay) {
  const auto pen = [](const char* id, const char* ended, const char* left, InsResCode code = insSuccess) {
    PenRecord record;
    record.code = code;
    record.id = id;
    record.ended = ended;
    record.left = left;
    return record;
  };
  const auto run = [](const char* command, const std::vector<PenRecord>& pens, bool running = false) {
    RunRecord record;
    record.command = command;
    record.running = running;
    record.pens = pens;
    return record;
  };
  const struct {
    const char* name;
    std::vector<RunRecord> runs;  // the newest first
    const char* lost;
  } rows[] = {{"none", {}, ""},
              {"killed", {run("install", {pen("a", "", "")})}, "a: the run was ended by force; "},
              {"goes on", {run("install", {pen("a", "", "")}, true), run("install", {pen("a", "", "")})}, ""},
              {"left",
               {run("install", {pen("a", "t", "in download mode")})},
               "a: success; the pen was left in download mode; "},
              {"an application failed",
               {run("install", {pen("a", "t", "", insAppFailed)})},
               "a: installing an application failed; "},
              {"not touched", {run("install", {pen("a", "t", "", insPenFailure)})}, ""},
              {"well again", {run("recover", {pen("a", "t", "")}), run("install", {pen("a", "", "")})}, ""},
              {"well in the same run", {run("recover", {pen("a", "", ""), pen("a", "t", "")})}, ""},
              {"no install", {run("remove", {pen("a", "", "")})}, ""}};
  for (const auto& row : rows) {
    std::string lost;
    for (const LostPen& each : LostPens(row.runs)) lost += each.id + ": " + each.how + "; ";
    EXPECT_EQ(lost, row.lost) << row.name;
  }
}

}  // namespace
