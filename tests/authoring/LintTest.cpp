#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "authoring/Lint.h"
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
