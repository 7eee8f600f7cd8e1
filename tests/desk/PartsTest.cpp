// The parts of the desk that need neither pen nor library.
#include <gtest/gtest.h>

#include "desk/LogReader.h"
#include "desk/PackageList.h"
#include "desk/PenList.h"
#include "desk/ResultTexts.h"
#include "desk/Text.h"
#include "desk/WaitWatch.h"

namespace {

TEST(Text, SizesAndTimes) {
  const std::pair<uint64_t, const char*> sizes[] = {
      {0, "0 B"},          {999, "999 B"},        {1000, "1.0 kB"},        {999'949, "999.9 kB"},
      {999'950, "1.0 MB"}, {3'400'000, "3.4 MB"}, {999'950'000, "1.0 GB"}, {~uint64_t{0}, "18446744073.7 GB"}};
  for (const auto& [bytes, text] : sizes) EXPECT_EQ(BytesText(bytes), text);
  const std::pair<uint64_t, const char*> times[] = {{0, "0:00"},     {7, "0:07"},       {750, "12:30"},
                                                    {3599, "59:59"}, {3723, "1:02:03"}, {360'000, "100:00:00"}};
  for (const auto& [seconds, text] : times) EXPECT_EQ(DurationText(seconds), text);
}

TEST(Text, PenIds) {
  const std::pair<const char*, std::optional<uint64_t>> cases[] = {{"0x2a", 42},
                                                                   {"0X2A", 42},
                                                                   {"42", 42},
                                                                   {"0xffffffffffffffff", ~uint64_t{0}},
                                                                   {"18446744073709551615", ~uint64_t{0}},
                                                                   {"0x10000000000000000", std::nullopt},
                                                                   {"18446744073709551616", std::nullopt},
                                                                   {"", std::nullopt},
                                                                   {"0x", std::nullopt},
                                                                   {"2a", std::nullopt},
                                                                   {"-1", std::nullopt},
                                                                   {" 1", std::nullopt},
                                                                   {"1 ", std::nullopt}};
  for (const auto& [text, id] : cases) EXPECT_EQ(ParsePenId(text), id) << '"' << text << '"';
  EXPECT_EQ(PenIdText(42), "0x000000000000002a");
}

TEST(ResultTexts, EveryCodeHasItsTextAndAStatus) {
#define ROW(name, value, meaning, remedy) {value, meaning},
  const std::pair<InsResCode, const char*> codes[] = {INS_RESULT_CODES(ROW)};
#undef ROW
  for (const auto& [code, meaning] : codes) {
    EXPECT_EQ(TextOf(code).meaning, meaning) << code;
    EXPECT_EQ(StatusOf(code) == ExitStatus::kDone, code >= 0) << code;
  }
  EXPECT_EQ(StatusOf(-12345), ExitStatus::kInternal);
  EXPECT_FALSE(TextOf(-12345).remedy.empty());
}

TEST(LogReader, UnderstandsTheLibrarysLinesAndNoOthers) {
  std::optional<LogLine> line = ParseLogLine("[20080111-12:00:00] [0000abcd] [Update              ] Config is NULL");
  ASSERT_TRUE(line.has_value());
  EXPECT_EQ(line->thread, "0000abcd");
  EXPECT_EQ(line->tag, "Update");
  EXPECT_EQ(line->message, "Config is NULL");
  for (const char* other :
       {"", "text", "[2008-01-11 12:00] [0000abcd] [Update              ] of another width",
        "[20080111-12:00:00] (0000abcd] [Update              ] text", "[20080111-12:00:00] [0000"}) {
    EXPECT_FALSE(ParseLogLine(other).has_value()) << other;
  }
}

TEST(LogReader, TheDetailIsTheLastLineThatTellsACause) {
  std::vector<LogLine> lines{{"1", "insStartInstall", "+penHandle=1"},
                             {"1", "Update", "Unable get penId, penHandle=1"},
                             {"1", "CheckToInstall", "Skipped \"a\" version 1, same version already installed"},
                             {"1", "Abort", "Abort. PenId=1"},
                             {"1", "insStartInstall", "-Ret=-6, penHandle=1"}};
  EXPECT_EQ(DetailOf(lines), "Unable get penId, penHandle=1");
  EXPECT_EQ(DetailOf({}), "");
}

TEST(LogReader, TheCauseStandsBeforeWhatFollowedFromIt) {
  std::vector<LogLine> lines{{"1", "CachePenInfos", "Error parsing firmware version \"x\""},
                             {"1", "Update", "Unable cache pen and penlet information. penHandle=1"},
                             {"1", "insStartInstall", "-Ret=-6, penHandle=1, bundleHandle=1"}};
  EXPECT_EQ(DetailOf(lines), "Error parsing firmware version \"x\"");
  lines = {{"1", "insStartInstall", "-Ret=-6, pcRet=122, penHandle=1. Unable register install_penId"}};
  EXPECT_EQ(DetailOf(lines), lines[0].message) << "the exported function's own line is the only one";
}

TEST(LogReader, NamesTheCauseInWords) {
  std::vector<LogLine> lines{{"1", "ExtractZip", "Cannot open file zip a.bundle"},
                             {"1", "Load", "Extracting a.bundle to /tmp/1_2 failed. ZipErr=-1"},
                             {"1", "insLoadBundle", "Ret=-101, BundleFile=a.bundle"}};
  EXPECT_EQ(DetailOf(lines), "Cannot open file zip a.bundle");
  EXPECT_EQ(CauseOf(DetailOf(lines)), "The file is no zip archive, or not a whole one, or may not be read.");
  EXPECT_EQ(CauseOf("-Ret=-6, pcRet=122, penHandle=1, bundleHandle=1. Unable register install_penId"),
            "Another program or run is using the pen.");
  EXPECT_EQ(CauseOf("Folder /tmp/1_2 is not safe to use: it belongs to another user"), "") << "clear by itself";
}

TEST(LogReader, ReadsNothingThatIsNoRegularFile) {
  EXPECT_FALSE(LogReader("/dev/full").LinesOfCall(LogThreadName(), "insStartInstall", "-Ret=0").whole);
}

TEST(PackageList, SkipReasonsInWords) {
  const std::pair<const char*, const char*> cases[] = {
      {"Skipped \"a.app\" version 2.3, Same version already installed", "same version already installed"},
      {"Skipped \"a.app\" version 2.3, newer version 2.4 already installed", "newer version 2.4 on the pen"},
      {"Skipped \"a.app\" version 2.3 - group version 1.0, newer group version 3.0 already installed",
       "newer group version 3.0 on the pen"},
      {"Skipped \"a, b.app\" version 2.3, Same version already installed", "same version already installed"},
      {"Skipped \"a.app\"", ""}};
  for (const auto& [message, reason] : cases) EXPECT_EQ(SkipReason(message), reason) << message;
}

PenUpdateProgressCallbackInfo Report(const char* file, uint64_t done, InsResCode result = insSuccess) {
  PenUpdateProgressCallbackInfo info{};
  info.result = result;
  info.packageFile = file;
  info.itemDone = done;
  info.itemTotal = 10;
  return info;
}

TEST(PackageList, TellsSentFromSkippedFromFailed) {
  PackageList list;
  for (const auto& [file, done] : {std::pair{"/t/sent", 0}, {"/t/sent", 10}, {"/t/sent", 10}, {"/t/same", 10}}) {
    list.Take(Report(file, static_cast<uint64_t>(done)));
  }
  list.Take(Report("/t/bad", 3));
  list.Take(Report("/t/bad", 3, insAppFailed));
  list.Take(Report("/t/late", 10));
  list.ConcludeInstall(insAppFailed, false,
                       {{{"1", "CheckToInstall", "Skipped \"same\" version 1, Same version already installed"}}, true});
  std::string outcomes;
  for (const PackageRow& row : list.Rows()) outcomes += row.file + ": " + row.outcome + "; ";
  EXPECT_EQ(outcomes, "sent: installed; same: skipped; bad: failed; late: not finished; ");
  EXPECT_EQ(list.FirstError(), insAppFailed);
}

TEST(PackageList, AFileThatWasSentButNotTakenIsNotInstalled) {
  PackageList list;
  list.Take(Report("/t/fw", 5));
  list.Take(Report("/t/fw", 10));
  list.ConcludeInstall(insTimeout, false, {{}, true});
  EXPECT_EQ(list.Rows()[0].outcome, "not finished");
}

// The reports tell a transfer from a skip; without the log only the reason is not known.
TEST(PackageList, WithoutTheLogNothingIsCalledInstalledThatWasNotSent) {
  const struct {
    InsResCode result;
    bool forced;
    const char* outcomes;
  } rows[] = {{insSuccess, false, "installed skipped skipped "},
              {insAborted, false, "installed skipped unknown "},
              {insSuccess, true, "installed installed installed "},
              {insAborted, true, "installed installed not finished not reached "}};
  for (const auto& row : rows) {
    PackageList list;
    for (const auto& [file, done] : {std::pair{"/t/sent", 10}, {"/t/sent", 10}, {"/t/same", 10}, {"/t/last", 10}}) {
      list.Take(Report(file, static_cast<uint64_t>(done)));
    }
    PackageRow never;
    never.file = "never";
    list.ConcludeInstall(row.result, row.forced, {},
                         row.forced ? std::vector<PackageRow>{never} : std::vector<PackageRow>());
    std::string outcomes;
    for (const PackageRow& each : list.Rows()) {
      if (each.file != "never" || row.result == insAborted) outcomes += each.outcome + ' ';
    }
    EXPECT_EQ(outcomes, row.outcomes);
  }
}

TEST(WaitWatch, CountsTheSecondsOfEachWaitByItself) {
  using std::chrono::seconds;
  WaitWatch watch(1, true);
  WaitWatch::Time start{};
  struct Step {
    const char* name;
    std::vector<int32_t> handles;
    int second;
    WaitFor what;
    int seconds;
  };
  const auto follow = [&](const std::vector<Step>& steps) {
    for (const Step& step : steps) {
      Wait wait = watch.Poll(step.handles, start + seconds(step.second));
      EXPECT_EQ(wait.what, step.what) << step.name;
      EXPECT_EQ(wait.seconds, step.seconds) << step.name;
    }
  };
  follow({{"on the bus", {1, 7}, 0, WaitFor::kNothing, 0},
          {"still silent", {1, 7}, 4, WaitFor::kPerhapsLeave, 4},
          {"gone", {7}, 5, WaitFor::kReturn, 0},
          {"still gone", {7}, 8, WaitFor::kReturn, 3},
          {"never more than the limit", {}, 500, WaitFor::kReturn, 60}});
  watch.OnReport(2, "Firmware", false);
  follow({{"a download runs", {2}, 501, WaitFor::kNothing, 0}});
  watch.OnReport(2, "Firmware", true);
  follow({{"sent", {2}, 502, WaitFor::kLeave, 0}, {"left", {}, 504, WaitFor::kReturn, 0}});
  watch.OnReport(3, "Firmware", true);
  follow({{"back", {3}, 506, WaitFor::kNothing, 0}});
  watch.OnReport(3, "PenApp", false);
  follow({{"unplugged while an application is sent", {}, 507, WaitFor::kNothing, 0}});
}

}  // namespace
