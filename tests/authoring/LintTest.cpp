#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "authoring/Lint.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TestBundle.h"

namespace {

using authoring::Finding;

void Replace(std::string& text, const std::string& from, const std::string& to) {
  size_t at = text.find(from);
  ASSERT_NE(at, std::string::npos) << from;
  text.replace(at, from.size(), to);
}

// A bundle without a finding: in its manifest the group stands in line 4, chess in line 6, the firmware in line 7.
TestBundleOptions CleanOptions() {
  TestGroup group{.name = "Games", .version = "1.0", .penTypes = "1,2", .folder = "Apps"};
  group.packages = {PenAppPackage("chess", "Chess", "1.2", 3, 2), FirmwarePackage("8.9.15.b2", 1)};
  group.packages[0].properties = {{"color", "red"}};
  return {.groups = {group}};
}

std::vector<Finding> LintOf(const TestBundleOptions& options, std::vector<std::string> certificates = {}) {
  TestBundle bundle(options);
  std::unique_ptr<authoring::Contents> contents = authoring::Contents::Open(bundle.path());
  std::vector<authoring::Certificate> loaded;
  for (const std::string& pem : certificates) loaded.push_back(authoring::Certificate::FromPem(pem, "cert.pem"));
  return Lint(authoring::LintInput(*contents, std::move(loaded)));
}

std::string Describe(const std::vector<Finding>& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += std::string(finding.rule->name) + " " + finding.file + ":" + std::to_string(finding.line) + " " +
            finding.message + "\n";
  }
  return text;
}

// One finding: what it takes to get it from the clean bundle, and where it is found.
struct Row {
  const char* rule;
  std::string file;
  int line;
  // In update.xml, before it is signed.
  const char* from = nullptr;
  std::string to{};
  // Or any other change.
  void (*change)(TestBundleOptions&) = nullptr;
};

void EditBom(TestBundleOptions& options, const std::string& from, const std::string& to) {
  options.editBomXml = [from, to](std::string& text) { Replace(text, from, to); };
}

const std::string kUpdate = "update.xml";
const std::string kBom = "bom.xml";
const std::string kLong(200, 'x');

const Row kRows[] = {
    {"line-break-after-name", kUpdate, 6, "<Property name", "<Property\nname"},
    {"line-break-between-attributes", kUpdate, 6, "\"color\" value", "\"color\"\n value"},
    {"single-quoted-attribute", kUpdate, 6, "value=\"red\"", "value='red'"},
    {"space-around-equals", kUpdate, 6, "value=", "value ="},
    {"open-quote", kUpdate, 6, "\"red\"", "\"r>d\""},
    {"bare-ampersand", kUpdate, 4, "<Name>Games", "<Name>Salt & Pepper"},
    {"comment-holds-greater-than", kUpdate, 5, "<FileList>", "<!-- a -> b --><FileList>"},
    {"character-data-section", kUpdate, 4, "<Name>Games</Name>", "<Name><![CDATA[Games]]></Name>"},
    {"document-type", kUpdate, 2, "<UPDATE>", "<!DOCTYPE UPDATE><UPDATE>"},
    {"tags-do-not-match", kUpdate, 4, "</Name>", "</Nom>"},
    {"missing-manifest", kUpdate, 1, "<GroupList>", "<Groups>"},
    {"attribute-too-long", kUpdate, 4, "Games", std::string(256, 'n')},
    {"guid-too-long", kUpdate, 6, "<GUID>chess", "<GUID>chess-and-checkers"},
    {"version-too-long", kUpdate, 6, "<Version>1.2", "<Version>1.20000000000000"},
    {"version-too-many-parts", kUpdate, 6, "<Version>1.2", "<Version>1.2.3.4.5.6"},
    {"version-part-not-a-number", kUpdate, 6, "<Version>1.2", "<Version>1.2beta"},
    {"group-without-pen-types", kUpdate, 4, "<PenTypes>1,2</PenTypes>", ""},
    {"group-without-file-list", kUpdate, 8, "</FileList></Group>",
     "</FileList></Group><Group><Name>Empty</Name><PenTypes>1</PenTypes></Group>"},
    {"unknown-file-type", kUpdate, 6, "<FileType>PenApp", "<FileType>penapp"},
    {"equal-transfer-orders", kUpdate, 7, "<TransferOrder>1<", "<TransferOrder>2<"},
    {"firmware-after-applications", kUpdate, 7, "<TransferOrder>1<", "<TransferOrder>3<"},
    {"duplicate-guid", kUpdate, 7, "<GUID>fw-8.9.15.b2", "<GUID>chess"},
    {"package-without-guid", kUpdate, 6, "<GUID>chess</GUID>", ""},
    {"package-without-file", kUpdate, 6, "<FileName>chess.pen</FileName>", ""},
    {"not-a-number", kUpdate, 4, "<PenTypes>1,2", "<PenTypes>1, 2"},
    {"not-a-boolean", kUpdate, 4, "<PenTypes>", "<Locked>yes</Locked><PenTypes>"},
    {"element-not-read", kUpdate, 6, "<BuildNumber>3</BuildNumber>", "<Buildnumber>3</Buildnumber>"},
    {"property-without-name", kUpdate, 6, "name=\"color\" ", ""},
    {"missing-file", kUpdate, 6, nullptr, "", [](auto& o) { o.dropMembers = {"Apps/chess.pen"}; }},
    {"empty-file", "Apps/chess.pen", 0, nullptr, "", [](auto& o) { o.groups[0].packages[0].content.clear(); }},
    {"unlisted-file", "Apps/read.me", 0, nullptr, "", [](auto& o) { o.replaceMembers["Apps/read.me"] = "x"; }},
    {"path-too-long", kLong + "/" + kLong, 0, nullptr, "", [](auto& o) { o.replaceMembers[kLong + "/" + kLong]; }},
    {"folders-too-deep", "a/b/c/d", 0, nullptr, "", [](auto& o) { o.replaceMembers["a/b/c/d"] = "x"; }},
    {"leaves-its-folder", "Apps/../../x", 0, nullptr, "", [](auto& o) { o.replaceMembers["Apps/../../x"] = "x"; }},
    {"names-differ-in-case-only", "Apps/chess.pen", 0, nullptr, "",
     [](auto& o) { o.replaceMembers["APPS/chess.pen"] = "x"; }},
    {"missing-signature-manifest", kBom, 0, nullptr, "", [](auto& o) { o.dropMembers = {kBom}; }},
    {"unsigned-file", kUpdate, 6, nullptr, "", [](auto& o) { EditBom(o, "name=\"chess.pen\"", "name=\"chess\""); }},
    {"signature-matches-nothing", kBom, 4, nullptr, "",
     [](auto& o) { EditBom(o, "name=\"chess.pen\"", "name=\"chess\""); }},
    {"duplicate-signature", kBom, 5, nullptr, "",
     [](auto& o) { EditBom(o, "name=\"firmware-8.9.15.b2.bin\"", "name=\"CHESS.PEN\""); }},
    {"signature-not-on-one-line", kBom, 3, nullptr, "", [](auto& o) { EditBom(o, "signature=\"", "signature=\"A\n"); }},
    {"subject-value-too-long", kBom, 3, nullptr, "",
     [](auto& o) { EditBom(o, "subject=\"", "subject=\"/OU=" + kLong); }},
};

class LintRow : public testing::TestWithParam<Row> {};

}  // namespace

TEST(Lint, FindsNothingInACleanBundle) {
  EXPECT_EQ(Describe(LintOf(CleanOptions())), "");
}

TEST_P(LintRow, IsFoundAtItsPlace) {
  const Row& row = GetParam();
  TestBundleOptions options = CleanOptions();
  if (row.from) options.editUpdateXml = [&row](std::string& text) { Replace(text, row.from, row.to); };
  if (row.change) row.change(options);
  std::vector<Finding> findings = LintOf(options);
  EXPECT_TRUE(std::any_of(findings.begin(), findings.end(),
                          [&row](const Finding& finding) {
                            return finding.rule->name == std::string(row.rule) && finding.file == row.file &&
                                   finding.line == row.line;
                          }))
      << "expected " << row.rule << " at " << row.file << ":" << row.line << ", found\n"
      << Describe(findings);
}

INSTANTIATE_TEST_SUITE_P(Rules, LintRow, testing::ValuesIn(kRows), [](const auto& row) {
  std::string name = row.param.rule;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

// What is just within bounds, or only looks like a trap, is no finding.
TEST(Lint, FindsNothingJustWithinTheBounds) {
  const Row kFine[] = {
      {"name of 255 bytes", "", 0, "Games", std::string(255, 'n')},
      {"guid of 15 characters", "", 0, "<GUID>chess", "<GUID>chess-and-check"},
      {"version of 15 characters", "", 0, "<Version>1.2", "<Version>1.234567890.234"},
      {"version of five parts", "", 0, "<Version>1.2", "<Version>1.2.3.4_5"},
      {"firmware suffix", "", 0, "<Version>8.9.15.b2", "<Version>8.9.16.b10"},
      {"every pen", "", 0, "<PenTypes>1,2", "<PenTypes>0"},
      {"boolean in capitals", "", 0, "<PenTypes>", "<Locked>TRUE</Locked><PenTypes>"},
      {"comment", "", 0, "<FileList>", "<!-- one - two --><FileList>"},
      {"references", "", 0, "<Name>Games", "<Name>&lt;&#65;&#x41;&amp;&gt;"},
      {"line break in text", "", 0, "<Name>Games", "<Name>\nGames"},
      {"line break before the end of a tag", "", 0, "\"red\"/>", "\"red\"\n/>"},
      {"apostrophe in a value", "", 0, "value=\"red\"", "value=\"it's\""},
      {"two folders deep", "", 0, nullptr, "", [](auto& o) { o.groups[0].folder = "Apps/Deep"; }},
      {"same name in two folders", "", 0, nullptr, "",
       [](auto& o) {
         o.groups.push_back(o.groups[0]);
         o.groups[1].folder = "More";
         o.groups[1].packages.resize(1);
         o.groups[1].packages[0].guid = "chess2";
         o.groups[1].packages[0].transferOrder = "9";
       }},
      {"entry without a folder", "", 0, nullptr, "", [](auto& o) { EditBom(o, " folder=\"Apps\"", ""); }},
      {"entry in capitals", "", 0, nullptr, "",
       [](auto& o) { EditBom(o, "name=\"chess.pen\"", "name=\"CHESS.PEN\""); }},
  };
  for (const Row& row : kFine) {
    SCOPED_TRACE(row.rule);
    TestBundleOptions options = CleanOptions();
    if (row.from) options.editUpdateXml = [&row](std::string& text) { Replace(text, row.from, row.to); };
    if (row.change) row.change(options);
    EXPECT_EQ(Describe(LintOf(options)), "");
  }
}

TEST(Lint, AFolderIsJudgedByWhatPackingItWouldShip) {
  TempFolder folder;
  folder.Write("update.xml", TestUpdateXml(CleanOptions()));
  folder.Write("Apps/chess.pen", "x");
  folder.Write("Apps/firmware-8.9.15.b2.bin", "x");
  folder.Write("a/b/c/d/notes.txt", "x");
  std::unique_ptr<authoring::Contents> contents = authoring::Contents::Open(folder.path().string());
  EXPECT_EQ(Describe(Lint(authoring::LintInput(*contents, {}))),
            "unlisted-file a/b/c/d/notes.txt:0 No package names this file; it is left out of the bundle\n");
}

TEST(Lint, TheProgramTellsPlaceRemedyAndStatus) {
  TestBundleOptions options = CleanOptions();
  options.replaceMembers["Apps/read.me"] = "x";
  TestBundle warned(options);
  options.editUpdateXml = [](std::string& text) { Replace(text, "<PenTypes>1,2</PenTypes>", ""); };
  TestBundle broken(options);
  auto run = [](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {QUARVEL_BUNDLE_PROGRAM, "lint"});
    return RunProgram(arguments);
  };
  EXPECT_EQ(run({warned.path()}).status, 0);
  EXPECT_EQ(run({warned.path(), "--strict"}).status, 1);
  EXPECT_EQ(run({warned.path(), "--strict", "--ignore", "unlisted-file"}).status, 0);
  ProgramResult text = run({broken.path()});
  EXPECT_EQ(text.status, 1);
  EXPECT_NE(text.out.find("update.xml:4: error: The group \"Games\" names no pen types and goes to no pen "
                          "[group-without-pen-types]\n    Add \"PenTypes\" with the types, or 0 for every pen.\n"),
            std::string::npos)
      << text.out;
  auto json = nlohmann::json::parse(run({broken.path(), "--json"}).out);
  EXPECT_EQ(json["errors"], 1);
  EXPECT_EQ(json["warnings"], 1);
  EXPECT_EQ(json["findings"][0]["line"], nullptr);
  EXPECT_EQ(json["findings"][1]["line"], 4);
  EXPECT_EQ(json["findings"][1]["name"], "group-without-pen-types");
}

TEST(Lint, TellsAFolderEntryByItsUnixBit) {
  TestBundleOptions options = CleanOptions();
  options.replaceMembers["Apps/"] = "";
  EXPECT_NE(Describe(LintOf(options)).find("folder-without-unix-bit Apps/:0"), std::string::npos);
}

TEST(Lint, ComparesSignersWithTheGivenCertificates) {
  EXPECT_EQ(Describe(LintOf(CleanOptions(), {MakeTestIdentity().certPem})), "");
  std::string foreign = Describe(LintOf(CleanOptions(), {MakeTestIdentity("/CN=Somebody Else").certPem}));
  EXPECT_NE(foreign.find("subject-not-of-a-certificate bom.xml:3"), std::string::npos) << foreign;
  std::string old = Describe(
      LintOf(CleanOptions(), {MakeTestIdentity(TestIdentityOptions{.validFromDays = -2, .validToDays = -1}).certPem}));
  EXPECT_NE(old.find("certificate-out-of-dates cert.pem:0"), std::string::npos) << old;
}

// Every rule has a row, so that a new one cannot come without.
TEST(Lint, HasARowForEveryRule) {
  std::set<std::string> tested{"folder-without-unix-bit", "subject-not-of-a-certificate", "certificate-out-of-dates"};
  for (const Row& row : kRows) tested.insert(row.rule);
  for (const authoring::LintRule* rule : authoring::AllLintRules())
    EXPECT_TRUE(tested.contains(rule->name)) << rule->name;
}
