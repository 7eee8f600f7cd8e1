// The tests' own instruments: a broken one would make other tests pass or fail for nothing.
#include <gtest/gtest.h>

#include "tests/support/RunProgram.h"
#include "tests/support/TestBundle.h"

TEST(RunProgram, KeepsBothStreamsTheStatusAndTheInput) {
  ProgramResult result =
      RunProgram({"/bin/sh", "-c", "cat; echo \"$WORD\" >&2; exit 7"}, {"given", {{"WORD", "spoken"}}});
  EXPECT_EQ(result.status, 7);
  EXPECT_EQ(result.out, "given");
  EXPECT_EQ(result.err, "spoken\n");
  EXPECT_EQ(RunProgram({"/bin/sh", "-c", "kill -TERM $$"}).status, 128 + 15);
}

TEST(TestIdentity, IsTheSameForTheSameOptionsAndAnotherForOthers) {
  const TestIdentity& first = MakeTestIdentity();
  EXPECT_EQ(&first, &MakeTestIdentity());
  EXPECT_EQ(first.subject, "/C=SE/O=Pen Works/CN=Bundle Signer");
  EXPECT_EQ(first.keyPem, MakeTestIdentity("/CN=Other").keyPem);
  EXPECT_NE(first.keyPem, MakeTestIdentity(first.subject, 1).keyPem);
}
