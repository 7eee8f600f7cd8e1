// What the linker and the compiler were asked to add to the programs and libraries against attackers, read from the
// built files.
#include <gtest/gtest.h>

#include "tests/support/RunProgram.h"

namespace {

std::string Read(const char* part, const char* file) {
  const ProgramResult result = RunProgram({"/bin/sh", "-c", "exec readelf -W \"$@\"", "sh", part, file});
  EXPECT_EQ(result.status, 0) << result.err;
  return result.out;
}

bool HasLine(const std::string& text, const char* start, const char* part) {
  const size_t line = text.find(start);
  return line != std::string::npos && text.substr(line, text.find('\n', line) - line).find(part) != std::string::npos;
}

}  // namespace

TEST(Hardening, IsInEveryFileThatShips) {
  for (const char* file : {QUARVEL_FILES}) {
    SCOPED_TRACE(file);
    const std::string segments = Read("--segments", file);
    EXPECT_TRUE(HasLine(segments, "Elf file type is", "DYN")) << "goes to any address";
    EXPECT_TRUE(HasLine(segments, "  GNU_RELRO", " R "));
    EXPECT_TRUE(HasLine(segments, "  GNU_STACK", " RW ")) << "the stack holds no code";
    EXPECT_TRUE(HasLine(Read("--dynamic", file), "(FLAGS_1)", "NOW"));
    const std::string symbols = Read("--dyn-syms", file);
    EXPECT_NE(symbols.find(" __stack_chk_fail"), std::string::npos);
    EXPECT_EQ(symbols.find("_chk@") != std::string::npos, QUARVEL_FORTIFIED != 0) << "string functions know bounds";
  }
}
