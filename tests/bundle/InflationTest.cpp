// What archives hold does not depend on what they are inflated with: whole, damaged in every place and cut everywhere.
#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <random>

#include "Common/zip/ZipExtraction.h"
#include "authoring/ZipWriter.h"
#include "tests/support/TestLog.h"

namespace {

namespace fs = std::filesystem;
using With = CZipMember::Inflation;

struct Unpacked {
  int32_t result;
  Lines messages;
  std::map<std::string, std::string> files;
  bool operator==(const Unpacked&) const = default;
};

// On one core: how far several threads get before one of them fails is not told by the archive.
class Inflation : public testing::Test {
 protected:
  Inflation() {
    sched_getaffinity(0, sizeof m_cores, &m_cores);
    cpu_set_t one;
    CPU_ZERO(&one);
    for (int core = 0; core < CPU_SETSIZE && CPU_COUNT(&one) == 0; ++core) {
      if (CPU_ISSET(core, &m_cores)) CPU_SET(core, &one);
    }
    sched_setaffinity(0, sizeof one, &one);
  }
  ~Inflation() override { sched_setaffinity(0, sizeof m_cores, &m_cores); }

  Unpacked Unpack(const std::string& zip, With inflation) {
    const std::string out = m_folder / "out";
    fs::remove_all(out);
    CZipExtraction extraction(zip, out, true, inflation);
    Unpacked unpacked{.result = extraction.Run(), .messages = {}, .files = {}};
    extraction.Log(g_Logger);
    const Lines all = m_log.Lines();
    unpacked.messages.assign(all.begin() + static_cast<ptrdiff_t>(m_seen), all.end());
    m_seen = all.size();
    // How much is free changes from one moment to the next.
    for (std::string& message : unpacked.messages)
      message.resize(std::min(message.size(), message.find(" are needed")));
    for (const auto& entry : fs::recursive_directory_iterator(out)) {
      unpacked.files[entry.path()] = entry.is_directory() ? "a folder" : ReadWholeFile(entry.path());
    }
    return unpacked;
  }
  void ExpectTheSame(const std::string& bytes, const std::string& what) {
    const std::string zip = m_folder.Write("a.zip", bytes);
    EXPECT_TRUE(Unpack(zip, With::kFastest) == Unpack(zip, With::kZlib)) << what;
  }
  std::string Archive(const std::function<void(authoring::ZipWriter&)>& fill) const {
    authoring::ZipWriter zip(m_folder / "made.zip");
    fill(zip);
    zip.Close();
    return ReadWholeFile(m_folder / "made.zip");
  }
  // Repeated words between random bytes.
  static std::string Text(size_t size) {
    std::mt19937 random(7);
    std::string text;
    while (text.size() < size) text += random() % 3 ? "application " : std::to_string(random());
    return text.substr(0, size);
  }

  cpu_set_t m_cores;
  TestLog m_log;
  TempFolder m_folder;
  size_t m_seen = 0;  // lines of the log
};

}  // namespace

TEST_F(Inflation, IsTheSameForEverySeedOfTheFuzzer) {
  size_t seeds = 0;
  for (const auto& seed : fs::directory_iterator(QUARVEL_ZIP_SEEDS)) {
    ExpectTheSame(ReadWholeFile(seed.path()), seed.path());
    ++seeds;
  }
  EXPECT_GT(seeds, 5U);
}

TEST_F(Inflation, IsTheSameForADamagedArchive) {
  const std::string whole = Archive([](authoring::ZipWriter& zip) {
    zip.AddBytes("d/text", Text(900));
    zip.AddBytes("empty", "");
    zip.AddBytes("runs", std::string(400, 'r'));
  });
  ExpectTheSame(whole, "the whole archive");
  for (size_t at = 0; at < whole.size(); ++at) {
    std::string bytes = whole;
    bytes[at] ^= static_cast<char>(1 << at % 8);
    ExpectTheSame(bytes, "byte " + std::to_string(at));
  }
  for (size_t at = 0; at < whole.size(); at += 11) {
    std::string bytes = whole;
    ExpectTheSame(bytes.erase(at, 11), "without bytes at " + std::to_string(at));
    ExpectTheSame(whole.substr(0, at), "cut at " + std::to_string(at));
  }
}

// Files of damaged members end at a multiple of 5 MiB.
TEST_F(Inflation, IsTheSameForALongMemberThatIsDamagedLate) {
  const std::string text = Text(6'000'000);
  const std::string whole = Archive([&](authoring::ZipWriter& zip) { zip.AddBytes("long", text); });
  const std::string zip = m_folder.Write("whole.zip", whole);
  EXPECT_EQ(Unpack(zip, With::kFastest).files.begin()->second, text);
  for (const double part : {0.1, 0.5, 0.9, 0.99}) {
    std::string bytes = whole;
    bytes[static_cast<size_t>(static_cast<double>(bytes.size()) * part)] ^= 0x10;
    ExpectTheSame(bytes, std::to_string(part));
  }
}
