#include "Common/QuietWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Common/UniqueFd.h"
#include "tests/support/TempFolder.h"

namespace {

bool IsPending(int signal) {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, signal) == 1;
}

UniqueFd PipeWithoutReader() {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  close(ends[0]);
  return UniqueFd(ends[1]);
}

}  // namespace

// A signal that got through would end this program.
TEST(QuietWriter, FailsWithoutASignal) {
  const UniqueFd end = PipeWithoutReader();
  const TempFolder folder;
  const UniqueFd file(open((folder / "file").c_str(), O_WRONLY | O_CREAT, 0600));
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit limit = {6, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  {
    const CQuietWriter quiet;
    EXPECT_EQ(quiet.Write(end.get(), "nobody reads"), 0U);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(quiet.Write(file.get(), "too long"), 6U);
    EXPECT_EQ(errno, EFBIG);
  }
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_EQ(ReadWholeFile(folder / "file"), "too lo");
}

TEST(QuietWriter, LeavesTheHostWhatIsPending) {
  const UniqueFd end = PipeWithoutReader();
  sigset_t pipes;
  sigset_t before;
  sigemptyset(&pipes);
  sigaddset(&pipes, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipes, &before);
  EXPECT_EQ(CQuietWriter().Write(end.get(), "x"), 0U);
  EXPECT_FALSE(IsPending(SIGPIPE));
  raise(SIGPIPE);
  EXPECT_EQ(CQuietWriter().Write(end.get(), "x"), 0U);
  EXPECT_TRUE(IsPending(SIGPIPE));
  const timespec atOnce = {};
  sigtimedwait(&pipes, nullptr, &atOnce);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
