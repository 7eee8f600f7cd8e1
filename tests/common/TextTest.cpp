#include <gtest/gtest.h>

#include <climits>

#include "Common/Base64.h"
#include "Common/Properties.h"
#include "Common/StringUtil.h"

TEST(CompareVersion, OrdersByFiveNumbers) {
  const struct {
    const char* a;
    const char* b;
    int result;
  } rows[] = {
      {"1.2.13.0", "1.2.13.0", 0},
      {"1.2.13", "1.2.13.0", 0},
      {"1.2.13.1", "1.2.13", 1},
      {"1.10", "1.9", 1},
      {"2_0_1", "2.0.1", 0},
      {"1.2.3.4.5.6", "1.2.3.4.5.7", 0},
      {"1.2beta", "1.2", 0},
      {"abc", "0", 0},
      {"1..2", "1.2", 0},
      {"1.-1", "1.0", -1},
      {"", "", 0},
      {"", "0.0.0.1", -1},
      {"1", "", 1},
      {"1.2.3.4.6", "1.2.3.4.5", 1},
      // Numbers beyond 32 bits are the nearest end of the range.
      {"99999999999999999999", "2147483647", 0},
      {"-99999999999", "-2147483648", 0},
      // A text is read up to its 49th character.
      {"0000000000000000000000000000000000000000000000001.5", "0000000000000000000000000000000000000000000000001.7", 0},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(CStringUtil::CompareVersion(row.a, row.b), row.result) << row.a << " against " << row.b;
    EXPECT_EQ(CStringUtil::CompareVersion(row.b, row.a), -row.result) << row.b << " against " << row.a;
  }
}

TEST(StringUtil, SplittingAppendsNonEmptyTokens) {
  std::vector<int32_t> numbers{7};
  CStringUtil::SplitToInts(" 1,2,,x;-3x,9999999999", ",;", numbers);
  EXPECT_EQ(numbers, (std::vector<int32_t>{7, 1, 2, 0, -3, INT_MAX}));
  std::vector<std::string> texts{"kept"};
  CStringUtil::Split(",;,", ",;", texts);
  CStringUtil::Split("a, b", ",", texts);
  EXPECT_EQ(texts, (std::vector<std::string>{"kept", "a", " b"}));
}

TEST(StringUtil, ReplaceAllSearchesInsertedTextFromItsSecondCharacter) {
  const struct {
    const char *text, *from, *to, *result;
  } rows[] = {
      {"a\\b\\c", "\\", "/", "a/b/c"}, {"aab", "ab", "b", "ab"},   {"none", "x", "y", "none"},
      {"aab", "a", "ca", "cacab"},     {"abb", "ab", "xa", "xxa"}, {"aaa", "a", "", "a"},
      {"a.a", "a", "bab", "bab.bab"},  {"text", "", "y", "text"},
  };
  for (const auto& row : rows) EXPECT_EQ(CStringUtil::ReplaceAll(row.text, row.from, row.to), row.result) << row.text;
}

TEST(StringUtil, CaseFoldingLeavesOtherBytesAlone) {
  std::string text = "MiXed \xC4 1";
  CStringUtil::ToLower(text);
  EXPECT_EQ(text, "mixed \xC4 1");
  CStringUtil::ToUpper(text.data());
  EXPECT_EQ(text, "MIXED \xC4 1");
}

TEST(Properties, ReadsEntriesByTheFirstMark) {
  const struct {
    const char *text, *key, *value;
    bool whole;
  } rows[] = {
      {"CN = Pen Signer\r\nO=Example\r\n", "CN", "Pen Signer", true},
      {"CN = Pen Signer\r\nO=Example\r\n", "O", "Example", true},
      {"a=1\na=2", "a", "1", true},
      {"path: a=b", "path", "a=b", true},
      {"a=b;c", "a", "b;c", true},
      {"a;b=c", "a;b", "", true},
      {"\tkey=v", "key", "", false},
      {"x=1\n\tkey=v", "x", "1", false},
      {"\n\r\n# note=1\n[section]\nk\n = v", "", "v", true},
      {"k=\tv\t", "k", "\tv\t", true},
  };
  for (const auto& row : rows) {
    CProperties properties;
    EXPECT_EQ(properties.Read(row.text), row.whole) << row.text;
    EXPECT_EQ(properties.GetValue(row.key), row.value) << row.text;
  }
}

namespace {

// Decodes into a buffer of exactly the promised size, so that a byte too many is found out.
std::string Decode(const std::string& text) {
  std::vector<unsigned char> out(static_cast<size_t>(CBase64::DecodedSize(static_cast<int>(text.size()))));
  const std::vector<unsigned char> in(text.begin(), text.end());  // without a NUL behind it
  const int size = CBase64::Decode(out.data(), in.data(), static_cast<int>(text.size()));
  EXPECT_EQ(out[static_cast<size_t>(size)], 0) << text;
  return std::string(out.begin(), out.begin() + size);
}

}  // namespace

TEST(Base64, DecodesGroupsUpToPaddingOrForeignCharacters) {
  using std::string_literals::operator""s;
  const std::pair<const char*, std::string> rows[] = {
      {"", ""},
      {"TQ==", "M"},
      {"TWE=", "Ma"},
      {"TWFu", "Man"},
      {"TWFuTWE=", "ManMa"},
      {"TWFu!x", "Man\3"},
      {"TWFuTQ", "ManM"},
      {"TWE=TWFu", "Ma"},
      {"T", "L"},
      {"TWFu\r\nTWFu", "ManMan\0"s},
      {"!!!!", "\0"s},
      {"TWFu\nTWFu\n\n\n", "ManMan\0"s},
      {"////", "\xff\xff\xff"},
  };
  for (const auto& [text, bytes] : rows) EXPECT_EQ(Decode(text), bytes) << text;
}
