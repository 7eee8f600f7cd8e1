// Several processes on one folder of pens: none loses another's change, and what a dead one held is free.
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <thread>

#include "tests/simulator/PenOnDesk.h"

namespace {

// A process that runs `work` until it is killed; it never returns into the tests.
class Child {
 public:
  template <typename Work>
  explicit Child(Work work) : m_process(fork()) {
    if (m_process != 0) return;
    work();
    for (;;) pause();
  }
  ~Child() { Kill(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void Kill() {
    if (m_process <= 0) return;
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
    m_process = 0;
  }

 private:
  pid_t m_process;
};

// A number that processes share.
class SharedNumber {
 public:
  SharedNumber()
      : m_place(mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {}
  ~SharedNumber() { munmap(m_place, sizeof(std::atomic<int>)); }
  SharedNumber(const SharedNumber&) = delete;
  SharedNumber& operator=(const SharedNumber&) = delete;
  std::atomic<int>& operator*() const { return *static_cast<std::atomic<int>*>(m_place); }

 private:
  void* m_place;
};

int Setting(const SimPens& pens, uint64_t id, const char* name) {
  return pens.Pen(id).at("settings").value(name, 0);
}

}  // namespace

class Processes : public PenOnDesk {};

TEST_F(Processes, AKilledWriterLosesNothingAndLeavesNoHalfPen) {
  std::mt19937 random(7);
  const SharedNumber theirs;  // what the other process finished writing
  int ours = 0;
  for (int round = 0; round < 100; ++round) {
    const int first = *theirs;
    Child writer([&] {
      for (int i = first + 1;; ++i) {
        if (pbSet(kPen, "leave-time", std::to_string(i).c_str()) != 0) break;
        *theirs = i;
      }
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 8000);
    do {
      ASSERT_EQ(pbSet(kPen, "return-time", std::to_string(++ours).c_str()), 0);
    } while (std::chrono::steady_clock::now() < end);
    writer.Kill();
    ASSERT_EQ(Setting(pens, kPen, "return-time"), ours) << "round " << round;
    const int written = *theirs ? Setting(pens, kPen, "leave-time") : 0;
    ASSERT_TRUE(written == *theirs || written == *theirs + 1) << "round " << round << ": " << written;
    ASSERT_EQ(pens.Pen(kPen).at("penlets").size(), 2U);
    *theirs = written;
  }
  EXPECT_GT(*theirs, 10) << "both wrote";
}

TEST_F(Processes, MarksAndChannelsAreForOneProcessAndGoWithIt) {
  const SharedNumber ready;
  Child holder([&] {
    int32_t channel = 0;
    *ready = pcRegisterVolatile("Install", kPen) == 0 && pcStartObex(&channel, handle, 30000) == 0 ? 1 : -1;
  });
  while (*ready == 0) std::this_thread::yield();
  ASSERT_EQ(*ready, 1);
  int32_t channel = 0;
  EXPECT_EQ(pcRegisterVolatile("Install", kPen), pbErrMark);
  EXPECT_EQ(pcRegisterVolatile("Other", kPen), 0) << "another name is another mark";
  EXPECT_EQ(pcRegisterVolatile("Other", kPen), pbErrMark) << "in one process too";
  EXPECT_EQ(pcUnRegisterVolatile("Other", kPen), 0);
  EXPECT_EQ(pcStartObex(&channel, handle, 30000), pbErrChannelBusy);
  holder.Kill();
  EXPECT_EQ(pcRegisterVolatile("Install", kPen), 0);
  EXPECT_EQ(pcStartObex(&channel, handle, 30000), 0);
  EXPECT_EQ(pcStopObex(channel), 0);
  EXPECT_EQ(pcUnRegisterVolatile("Install", kPen), 0);
  EXPECT_EQ(pbMarks(), 0);
}

TEST_F(Processes, AProcessIsKilledAtTheCallThatThePenSays) {
  pens.Add({{"id", "0x2b"}});
  const int32_t other = Handles().at(1);
  const SharedNumber made;
  int32_t state = 0;
  pens.Set(kPen, "kills-host-at", "3");
  const pid_t host = fork();
  if (host == 0) {
    pbReset();  // the count begins here
    for (const int32_t of : {handle, other, other, handle, other, handle, handle}) {
      pcGetPenState(of, &state, 0, 0);
      ++*made;
    }
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(host, &status, 0), host);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  EXPECT_EQ(*made, 5) << "calls for another pen are not counted";
}

// Every look sees every pen, whatever is written at the same time.
TEST_F(Processes, APenThatIsOnTheBusIsNeverMissed) {
  pens.Add({{"id", "0x2b"}});
  const Child writer([&] {
    for (int i = 0;; ++i) pbSet(i % 2 ? kPen : 0x2b, "leave-time", std::to_string(i % 1000).c_str());
  });
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(pcGetPenHandles(nullptr, 0), 2) << "look " << i;
}
