#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdlib>
#include <thread>

#include "installer/updater/PenUpdater.h"
#include "tests/updater/UpdaterRig.h"

namespace {

constexpr int32_t kHandle = 5;

int32_t Tick(ProgressGate* gate, int32_t penHandle) {
  return CPenUpdater::OnProgressCallback(penHandle, 100, 40, gate);
}

int32_t CountAndAnswerSeven(int32_t, const PenUpdateProgressCallbackInfo* info, void* count) {
  EXPECT_EQ(info->itemDone, 40U);
  EXPECT_EQ(info->itemTotal, 100U);
  ++*static_cast<int*>(count);
  return 7;
}

// What a pen library does whose thread outlives the host's exit: destroyed after everything of the library.
struct LastTick {
  ProgressGate* gate = nullptr;
  ~LastTick() {
    if (gate) _Exit(Tick(gate, kHandle) == 7 ? 42 : 43);
  }
};
__attribute__((init_priority(101))) LastTick g_lastTick;

}  // namespace

TEST(ProgressGate, IsOpenForThePenCallAlone) {
  int told = 0;
  ProgressGate* gate = nullptr;
  {
    CPenUpdater updater;
    updater.m_callback = CountAndAnswerSeven;
    updater.m_userData = &told;
    const RunGate runGate(updater);
    gate = runGate.gate();
    EXPECT_EQ(Tick(gate, kHandle), 0) << "before the transfer";
    {
      const OpenGate open(runGate, kHandle);
      EXPECT_EQ(Tick(gate, kHandle + 1), 0) << "another pen";
      EXPECT_EQ(told, 0);
      EXPECT_EQ(Tick(gate, kHandle), 7);
      EXPECT_EQ(Tick(gate, kHandle), 1) << "the host has asked to stop";
      updater.m_abort = false;
    }
    EXPECT_EQ(Tick(gate, kHandle), 0) << "late";
    updater.Abort();
    EXPECT_EQ(Tick(gate, kHandle), 1) << "late, of an aborted run";
  }
  for (int later = 0; later < 5; ++later) {
    CPenUpdater updater;
    const RunGate runGate(updater);
    const OpenGate open(runGate, kHandle);
    EXPECT_EQ(Tick(gate, kHandle), 1) << "of a run that has ended";
  }
  EXPECT_EQ(Tick(nullptr, kHandle), 0);
  EXPECT_EQ(told, 1);
}

TEST(ProgressGateDeathTest, OutlivesTheHostsExit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto exitInTransfer = [] {
    static int told = 0;
    auto* updater = new CPenUpdater;  // on the stack of a thread that waits in the pen library
    updater->m_callback = CountAndAnswerSeven;
    updater->m_userData = &told;
    auto* runGate = new RunGate(*updater);
    g_lastTick.gate = runGate->gate();
    g_lastTick.gate->Open(kHandle);
    std::exit(0);
  };
  EXPECT_EXIT(exitInTransfer(), testing::ExitedWithCode(42), "");
}

TEST(ThreadOfTheHost, MayEndInACallback) {
  const struct {
    const char* name;
    Answer answer;
  } rows[] = {
      {"pthread_exit in a transfer",
       [](const Report& report) -> int32_t {
         if (report.info.itemDone < report.info.itemTotal) pthread_exit(nullptr);
         return 0;
       }},
      {"pthread_exit between transfers",
       [](const Report& report) -> int32_t {
         if (report.packageName == "Settings") pthread_exit(nullptr);
         return 0;
       }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    UpdaterRig rig;
    rig.pens().Set(kPenId, "tick-size", "16");
    rig.AnswerWith(row.answer);
    bool returned = false;
    std::thread([&] {
      rig.Install();
      returned = true;
    }).join();
    EXPECT_FALSE(returned);
    EXPECT_TRUE(rig.LeftNothingOpen());
    EXPECT_EQ(insAbort(kPenId), insNotRunning);
  }
}

TEST(ThreadOfTheHost, IsCancelledAfterTheCallAlone) {
  UpdaterRig rig;
  rig.AnswerWith([](const Report&) {
    pthread_cancel(pthread_self());
    pthread_testcancel();
    return 0;
  });
  InsResCode result = insNotRunning;
  bool wentOn = false;
  std::thread([&] {
    result = rig.Install();
    pthread_testcancel();
    wentOn = true;
  }).join();
  EXPECT_EQ(result, insSuccess);
  EXPECT_FALSE(wentOn);
  EXPECT_EQ(rig.pens().Contents(kPenId), kInstalled);
}
