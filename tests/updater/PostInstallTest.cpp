// After the transfers: whose group version is raised, and what passes the check of the pen's contents.
#include <gtest/gtest.h>

#include "installer/updater/PenUpdater.h"
#include "tests/support/TestLog.h"
#include "tests/updater/ScriptedPen.h"

namespace {

using Calls = std::vector<std::string>;

BundleGroup Group(const char* name, const char* version) {
  BundleGroup group;
  group.name = name;
  group.version = version;
  group.attribCount = 1;
  group.attribs[0].id = 3;
  strcpy(group.attribs[0].value, version);
  return group;
}

// A bundle of three groups, two of one name, and an updater whose run has one package of the first.
class PostInstall : public testing::Test {
 protected:
  PostInstall() {
    updater.m_penHandle = 3;
    updater.m_curPakName = "last.pen";
    package.guid = "writer";
    package.localPath = "/tmp/bundle/writer.pen";
    package.version = "3.1.0";
    package.type = BndPakPenApp;
    package.group = &notes;
  }

  ScriptedPen pen;
  TestLog log;
  CPenUpdater updater;
  BundleGroup notes = Group("Notes", "3.1"), office = Group("Office", "2.0"), office2 = Group("Office", "2.5");
  BundlePackage package;
};

enum class Known { kNothing, kPackage, kGroup, kNeither };  // what the run has recorded of the penlet

struct RaiseRow {
  const char* name;
  PenletFacts penlet;
  Known known;
  Calls writes;          // GUID and attributes
  BndPakTypes recorded;  // what is recorded anew; BndPakUnknown for nothing
};

const RaiseRow kRaises[] = {
    {"older group", {"sketch", "1", "Notes", "3.0"}, Known::kNothing, {"sketch: 3=3.1"}, BndPakPenApp},
    {"the same group version", {"sketch", "1", "Notes", "3.1"}, Known::kNothing, {}, BndPakUnknown},
    {"a newer one", {"sketch", "1", "Notes", "3.2"}, Known::kNothing, {}, BndPakUnknown},
    {"another group", {"sketch", "1", "notes", "3.0"}, Known::kNothing, {}, BndPakUnknown},
    {"not there", {"sketch", "1", "Notes", "3.0", 0}, Known::kNothing, {}, BndPakUnknown},
    {"carried, skipped", {"writer", "1", "Notes", "3.0"}, Known::kNothing, {}, BndPakUnknown},
    {"carried, installed", {"writer", "1", "Notes", "3.0"}, Known::kPackage, {}, BndPakUnknown},
    {"to be raised", {"writer", "1", "Notes", "3.0"}, Known::kGroup, {"writer: 3=3.1"}, BndPakUnknown},
    {"recorded without a group", {"sketch", "1", "Notes", "3.0"}, Known::kNeither, {}, BndPakUnknown},
    {"first identifier", {"dots", "1", "Notes", "3.0", 1, 5, 0}, Known::kNothing, {"dots: 3=3.1"}, BndPakPaperProduct},
    {"second identifier", {"dots", "1", "Notes", "3.0", 1, 0, 5}, Known::kNothing, {"dots: 3=3.1"}, BndPakPaperProduct},
    {"two groups of its name",
     {"memo", "1", "Office", "1.9"},
     Known::kNothing,
     {"memo: 3=2.0", "memo: 3=2.5"},
     BndPakPenApp},
};

struct CheckRow {
  const char* name;
  BndPakTypes type;
  Known known;
  uint32_t flags;
  PenletFacts penlet;
  const char* complaint;  // empty where the check passes
};

constexpr PenletFacts kWriter = {"writer", "3.1.0", "Notes", "3.1"};

const CheckRow kChecks[] = {
    {"as wanted", BndPakPenApp, Known::kPackage, insFlagApps, kWriter, ""},
    {"missing", BndPakPenApp, Known::kPackage, insFlagApps, {"else"}, "Apps (writer.pen) Not Found"},
    {"an empty slot",
     BndPakPaperProduct,
     Known::kPackage,
     insFlagApps,
     {"writer", "3.1.0", "Notes", "3.1", 0},
     "Apps (writer.pen) Not Found"},
    {"version, text for text",
     BndPakPaperProduct,
     Known::kPackage,
     insFlagApps,
     {"writer", "3.1", "Notes", "3.1"},
     "Apps (writer.pen) Version mismatch. Actual=3.1, Expect=3.1.0"},
    {"group",
     BndPakPenApp,
     Known::kPackage,
     insFlagApps,
     {"writer", "3.1.0", "Office", "3.1"},
     "Apps (writer.pen) Group Name mismatch. Actual=Office, Expect=Notes"},
    {"group version",
     BndPakPenApp,
     Known::kPackage,
     insFlagApps,
     {"writer", "3.1.0", "Notes", "3.10"},
     "Apps (writer.pen) Group Version mismatch. Actual=3.10, Expect=3.1"},
    {"no applications asked for", BndPakPenApp, Known::kPackage, insFlagFirmware, {"else"}, ""},
    {"an unknown kind", BndPakUnknown, Known::kPackage, insFlagFirmware | insFlagApps, {"else"}, ""},
    {"other firmware",
     BndPakFirmware,
     Known::kPackage,
     insFlagFirmware,
     {"else"},
     "Firmware (writer.pen) Version mismatch. Actual=8.9.14.b1, Expect=3.1.0"},
    {"no firmware asked for", BndPakFirmware, Known::kPackage, insFlagApps, {"else"}, ""},
    {"raised", BndPakPenApp, Known::kGroup, 0, {"writer", "9", "Notes", "3.1"}, ""},
    {"raised, missing", BndPakPenApp, Known::kGroup, 0, {"else"}, "Apps (last.pen) Not Found"},
    {"raised, group",
     BndPakPenApp,
     Known::kGroup,
     0,
     {"writer", "9", "Office", "3.1"},
     "Apps (name of writer) Group Name mismatch. Actual=Office, Expect=Notes"},
    {"not raised",
     BndPakPenApp,
     Known::kGroup,
     0,
     {"writer", "9", "Notes", "3.0"},
     "Apps (name of writer) Group Version mismatch. Actual=3.0, Expect=3.1"},
    {"recorded without a group", BndPakPenApp, Known::kNeither, insFlagApps, {"else"}, ""},
};

}  // namespace

TEST_F(PostInstall, RaisesTheGroupVersionsOfWhatThePenKeeps) {
  for (const RaiseRow& row : kRaises) {
    SCOPED_TRACE(row.name);
    const std::string guid = row.penlet.guid;
    const size_t calls = pen.Calls("pcSetPenletAttrib").size();
    pen.penlets = {MakePenlet(row.penlet)};
    updater.m_processingItems.clear();
    if (row.known == Known::kPackage) updater.AddProcessingItem(package);
    if (row.known == Known::kGroup) updater.AddProcessingItem(guid, BndPakPenApp, &notes);
    if (row.known == Known::kNeither) updater.AddProcessingItem(guid, BndPakPenApp, nullptr);
    EXPECT_EQ(updater.UpdateGroupVersion({&notes, &office, &office2}, {&package}, 77), insSuccess);
    Calls writes = pen.Calls("pcSetPenletAttrib");
    writes.erase(writes.begin(), writes.begin() + static_cast<std::ptrdiff_t>(calls));
    Calls expected;
    for (const std::string& write : row.writes) expected.push_back("pcSetPenletAttrib(3, 77, " + write + ")");
    EXPECT_EQ(writes, expected);
    if (row.known == Known::kNothing) {
      EXPECT_EQ(updater.m_processingItems[guid].type, row.recorded);
    }
  }
}

TEST_F(PostInstall, EndsAtTheFirstPenletThatCannotBeReadOrRaised) {
  const struct {
    const char* function;
    int number;
    const char* complaint;
    size_t writes;
  } rows[] = {
      {"pcGetPenletInfo", 1, "Unable get penlet list. pcRet=8", 0},
      {"pcGetPenletCount", 1, "Unable count penlet list. pcRet=8", 0},
      {"pcGetPenletItem", 2, "Unable get penlet item. pcRet=8", 1},
      {"pcSetPenletAttrib", 2,
       "Update group attribute for app failed, guid=dots, name=title of dots, penHandle=3, pcRet=8", 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.function);
    ScriptedPen other;
    other.penlets = {MakePenlet({"sketch", "1", "Notes", "3.0"}), MakePenlet({"dots", "1", "Notes", "3.0"}),
                     MakePenlet({"more", "1", "Notes", "3.0"})};
    other.Answer(row.function, row.number, {.result = 8});
    updater.m_processingItems.clear();
    EXPECT_EQ(updater.UpdateGroupVersion({&notes}, {}, 77), insPenFailure);
    EXPECT_EQ(other.Calls("pcSetPenletAttrib").size(), row.writes);
    EXPECT_EQ(log.Lines().back(), std::string("UpdateGroupVersion: ") + row.complaint);
  }
}

TEST_F(PostInstall, ComparesThePenWithWhatTheRunDid) {
  for (const CheckRow& row : kChecks) {
    SCOPED_TRACE(row.name);
    pen.penlets = {MakePenlet(row.penlet)};
    package.type = row.type;
    updater.m_flags = row.flags;
    updater.m_processingItems.clear();
    if (row.known == Known::kPackage) updater.AddProcessingItem(package);
    if (row.known == Known::kGroup) updater.AddProcessingItem("writer", row.type, &notes);
    if (row.known == Known::kNeither) updater.AddProcessingItem("writer", row.type, nullptr);
    const size_t lines = log.Lines().size();
    EXPECT_EQ(updater.VerifyPen(77), *row.complaint ? insVerifyPenFailed : insSuccess);
    const Lines logged = log.Lines();
    EXPECT_EQ(logged.size(), lines + (*row.complaint ? 1 : 0));
    if (*row.complaint) {
      EXPECT_EQ(logged.back(), std::string("VerifyPen: ") + row.complaint);
    }
  }
  EXPECT_TRUE(pen.Calls("pcStartObex").empty()) << "the channel is the run's";
  pen.answers["pcGetPenInfo"] = {{.result = 8}};
  EXPECT_EQ(updater.VerifyPen(77), insPenFailure);
  EXPECT_EQ(log.Lines().back(), "VerifyPen: Unable cache pen and penlet information. penHandle=3");
}

TEST_F(PostInstall, ReadsThePenAsItTellsOfItself) {
  const struct {
    const char *firmware, *suffix, *version;
  } rows[] = {{"12-34-080915", "b2", "8.9.15.b2"},
              {"1-2-101112", "", "10.11.12."},
              {"x-34-080915", "b2", ""},
              {"12-34-0809", "b2", ""},
              {"", "", ""},
              {"12-34-08091599", "b2", "8.9.15.b2"},
              {"12-34-080915", "0123456789012345678901234567890123456789012345678901234567890123",
               "8.9.15.012345678901234567890123456789012345678901"}};
  for (const auto& row : rows) {
    pen.firmware = row.firmware;
    pen.suffix = row.suffix;
    EXPECT_EQ(updater.CachePenInfos(0), *row.version != 0) << row.firmware;
    EXPECT_EQ(updater.m_fwVersion, row.version) << row.firmware;
  }
  EXPECT_EQ(log.Lines().front(), "CachePenInfos: Error parsing firmware version \"x-34-080915\"");
  EXPECT_EQ(pen.Calls("pcStartObex"), Calls(std::size(rows), "pcStartObex(3, 30000)"));
  EXPECT_EQ(pen.Calls("pcStopObex").size(), std::size(rows));

  pen.firmware = rows[0].firmware;
  pen.suffix = rows[0].suffix;
  pen.penlets = {MakePenlet({"a", "1"}), MakePenlet({"gone", "1", "", "", 0}), MakePenlet({"unread", "1"}),
                 MakePenlet({"a", "2"})};
  pen.Answer("pcGetPenletItem", 3, {.result = 8});
  EXPECT_TRUE(updater.CachePenInfos(77));
  ASSERT_EQ(updater.m_penlets.size(), 1U);
  EXPECT_EQ(FieldText(updater.m_penlets["a"].version), "2") << "the later one counts";
}

TEST_F(PostInstall, BelievesNoCountBeyondWhatAPenCanHave) {
  const auto read = [&](int32_t count, const std::function<void()>& way) {
    ScriptedPen other;
    other.penlets.assign(5000, MakePenlet({"one", "1", "Games"}));
    other.answers["pcGetPenletCount"] = {{.value = count}};
    way();
    return other.Calls("pcGetPenletItem").size();
  };
  const struct {
    const char* tag;
    std::function<void()> read;
    size_t passes;
  } rows[] = {
      {"CachePenInfos", [&] { updater.CachePenInfos(77); }, 1},
      {"UpdateGroupVersion", [&] { updater.UpdateGroupVersion({}, {}, 77); }, 1},
      {"Remove", [&] { updater.Remove(3, "Notes", nullptr, nullptr); }, 2},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(read(-5, row.read), 0U) << row.tag;
    EXPECT_EQ(read(4096, row.read), 4096 * row.passes) << row.tag;
    const size_t lines = log.Lines().size();
    EXPECT_EQ(read(5000, row.read), 4096 * row.passes) << row.tag;
    EXPECT_EQ(log.Lines().size(), lines + 1);
    EXPECT_EQ(log.Lines().back(), std::string(row.tag) + ": Too many penlets, 904 of them left out. penHandle=3");
  }
}
