// The table of results in the host guide is the header's list. When the list changes, the failure's text is the table's
// new content.
#include <gtest/gtest.h>

#include <string>

#include "installer/QuarvelPublic.h"
#include "tests/support/TempFolder.h"

namespace {

std::string Table() {
  std::string table;
#define ROW(name, value, meaning, remedy) \
  table += "| " + std::to_string(value) + " | `" #name "` | " + meaning + " | " + remedy + " |\n";
  INS_RESULT_CODES(ROW)
#undef ROW
  return table;
}

}  // namespace

TEST(HostGuide, HoldsEveryResultWithItsCauseAndRemedy) {
  const std::string guide = ReadWholeFile(PROJECT_FOLDER "/docs/host-guide.md");
  const std::string head = "| code | name | cause | what to do |\n|---|---|---|---|\n";
  const size_t begin = guide.find(head);
  ASSERT_NE(begin, std::string::npos);
  const size_t rows = begin + head.size();
  EXPECT_EQ(guide.substr(rows, guide.find("\n\n", rows) + 1 - rows), Table());
}
