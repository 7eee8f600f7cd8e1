// The parts of the host that need neither pen nor library.
#include <gtest/gtest.h>

#include "desk/Text.h"
#include "host/Console.h"
#include "host/Masking.h"
#include "host/Progress.h"

namespace {

TEST(Text, ForeignTextsCannotSteerTheTerminal) {
  EXPECT_EQ(Printable("a\x1b[2Jb\n\x7f\xc3\xa5"), "a?[2Jb??\xc3\xa5");
  const char field[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EQ(TextOfField(field), "abcd");
  EXPECT_EQ(CutToColumns("\xc3\xa5\xc3\xa4z", 2), "\xc3\xa5\xc3\xa4");
  EXPECT_EQ(BarText(1, 2, 4) + PercentText(1, 2), "[##> ] 50%");
  EXPECT_EQ(BarText(0, 0, 4) + PercentText(0, 0), "[>   ]  0%");
  EXPECT_EQ(BarText(5, 2, 4) + PercentText(5, 2), "[####]100%");
}

TEST(Console, PartsLinesAtSpacesAndIndentsTheRest) {
  const struct {
    const char* text;
    const char* wrapped;
  } rows[] = {
      {"", ""},
      {"ten column", "ten column"},
      {"eleven colu", "eleven\n  colu"},
      {"  one two three", "  one two\n    three"},
      {"one  \x1b[31mtwo\x1b[0m\nthree", "one  \x1b[31mtwo\x1b[0m\nthree"},
      {"name  \x1b[31mfailed\x1b[0m   why", "name\n  \x1b[31mfailed\x1b[0m\n  why"},
      {"/a/path/without/a/space", "/a/path/without/a/space"},
      {"log: /a/path/without/a/space", "log: /a/path/without/a/space"},
      {"\xc3\xa5\xc3\xa4\xc3\xb6 \xc3\xa5\xc3\xa4\xc3\xb6 up", "\xc3\xa5\xc3\xa4\xc3\xb6 \xc3\xa5\xc3\xa4\xc3\xb6 up"},
      {"a          ", "a"}};
  for (const auto& row : rows) EXPECT_EQ(Wrapped(row.text, 10), row.wrapped) << row.text;
}

TEST(Masking, ReplacesNamesAndFoldersTheLongestFirst) {
  Masking masking;
  masking.AddName("Ada");
  masking.AddName("Pen of Ada");
  masking.AddFolderOf("/home/ada/x.bundle");
  masking.AddFolderOf("/home/ada/pens/y.log");
  masking.AddFolderOf("/tmp/z.log");
  EXPECT_EQ(masking.Apply("Pen of Ada, Ada, /home/ada/pens/q, /home/ada/x.bundle, /tmp/z.log"),
            "name-2, name-1, /folder-2/q, /folder-1/x.bundle, /tmp/z.log");
}

TEST(Masking, ReplacesIdsInEveryFormThatIsTold) {
  Masking masking;
  masking.AddFrom("Abort. PenId=81985529216486895, and 0x2a; code=-200, 17 of 12345 bytes");
  const std::pair<const char*, const char*> cases[] = {
      {"PenId=81985529216486895", "PenId=pen-1"},
      {"0x0123456789abcdef, 0x123456789ABCDEF.", "pen-1, pen-1."},
      {"0x000000000000002a", "pen-2"},
      {"42 of 12345 bytes at 1200000000", "42 of 12345 bytes at 1200000000"},
      {"x81985529216486895", "x81985529216486895"},
      {"", ""}};
  for (const auto& [text, masked] : cases) EXPECT_EQ(masking.Apply(text), masked);
}

}  // namespace
