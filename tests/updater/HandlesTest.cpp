// The registry of updaters, and the handles of pens that leave and return.
#include <gtest/gtest.h>

#include <barrier>
#include <thread>

#include "installer/updater/PenUpdater.h"
#include "tests/support/FakeClock.h"
#include "tests/support/TestLog.h"
#include "tests/updater/ScriptedPen.h"

namespace {

constexpr int32_t kOld = 3;  // the handle under which the updater knows its pen

struct WaitRow {
  const char* name;
  InsResCode (CPenUpdater::*wait)();
  int32_t type;                      // of the updater's pen
  std::map<int32_t, PenFacts> pens;  // from this poll on:
  int changesAt;                     // before that, the pen alone is there
  int abortsAt;                      // poll in which the run is aborted; 0 before the wait, -1 never
  InsResCode result;
  int32_t handle;
  int64_t seconds;
};

constexpr auto kDetach = &CPenUpdater::WaitPenDetach;
constexpr auto kAttach = &CPenUpdater::WaitPenAttach;
constexpr auto kBoth = &CPenUpdater::WaitPen;
constexpr PenFacts kMine = {.id = 0x2a};
constexpr PenFacts kOther = {.id = 0x2b};
constexpr PenFacts kAnonymous = {.id = 0, .type = 1, .state = 3};

// Handles of anonymous pens differ from row to row: one that was taken stays taken.
const WaitRow kWaits[] = {
    {"leaves at once", kDetach, 1, {}, 1, -1, insSuccess, kOld, 1},
    {"another pen comes instead", kDetach, 1, {{4, kOther}}, 1, -1, insSuccess, kOld, 1},
    {"leaves in the last poll", kDetach, 1, {}, 60, -1, insSuccess, kOld, 60},
    {"leaves in the poll after it", kDetach, 1, {}, 61, -1, insTimeout, kOld, 61},
    {"stays", kDetach, 1, {}, 99, -1, insTimeout, kOld, 61},
    {"stays, aborted", kDetach, 1, {}, 99, 3, insSuccess, kOld, 3},
    {"is back", kAttach, 1, {{4, kMine}}, 1, -1, insSuccess, 4, 0},
    {"is back behind others", kAttach, 1, {{4, kOther}, {5, {.id = 0}}, {6, kMine}}, 1, -1, insSuccess, 6, 0},
    {"is back in the last poll", kAttach, 1, {{4, kMine}}, 61, -1, insSuccess, 4, 60},
    {"is back later", kAttach, 1, {{4, kMine}}, 62, -1, insTimeout, kOld, 61},
    {"another pen", kAttach, 1, {{4, kOther}}, 1, -1, insTimeout, kOld, 61},
    {"in download mode", kAttach, 1, {{10, kAnonymous}}, 1, -1, insSuccess, 10, 0},
    {"the same, taken already", kAttach, 1, {{10, kAnonymous}}, 1, -1, insTimeout, kOld, 61},
    {"a free one behind a taken one", kAttach, 1, {{10, kAnonymous}, {11, kAnonymous}}, 1, -1, insSuccess, 11, 0},
    {"only the low 16 bits are the type", kAttach, 1, {{12, {0, 0x50001, 3}}}, 1, -1, insSuccess, 12, 0},
    {"silent, not in download mode", kAttach, 1, {{13, {0, 1, 1}}}, 1, -1, insTimeout, kOld, 61},
    {"in download mode, another type", kAttach, 1, {{14, {0, 2, 3}}}, 1, -1, insTimeout, kOld, 61},
    {"for a pen of another type", kAttach, 2, {{15, kAnonymous}}, 1, -1, insTimeout, kOld, 61},
    {"aborted before", kAttach, 1, {{4, kMine}}, 1, 0, insSuccess, kOld, 0},
    {"aborted meanwhile", kAttach, 1, {}, 1, 5, insSuccess, kOld, 5},
    {"leaves and is back", kBoth, 1, {{4, kMine}}, 2, -1, insSuccess, 4, 2},
    {"does not leave", kBoth, 1, {}, 99, -1, insTimeout, kOld, 61},
};

}  // namespace

TEST(Waits, FollowTheTable) {
  for (const WaitRow& row : kWaits) {
    SCOPED_TRACE(row.name);
    ScriptedPen pen;
    FakeClock clock;
    CPenUpdater updater;
    updater.m_penHandle = kOld;
    updater.m_penId = kMine.id;
    updater.m_penType = row.type;
    updater.m_abort = row.abortsAt == 0;
    if (row.wait == kAttach) pen.pens.clear();
    pen.Answer("pcGetPenHandles", row.changesAt, {.deed = [&] { pen.pens = row.pens; }});
    if (row.abortsAt > 0) pen.Answer("pcGetPenHandles", row.abortsAt, {.deed = [&] { updater.Abort(); }});
    const int64_t began = clock.Seconds();
    EXPECT_EQ((updater.*row.wait)(), row.result);
    EXPECT_EQ(updater.m_penHandle, row.handle);
    EXPECT_EQ(clock.Seconds() - began, row.seconds);
    EXPECT_EQ(pen.Calls("pcGetPenHandles").empty(), row.abortsAt == 0);
  }
}

TEST(Waits, NeedAHandleToWaitForItsLeaving) {
  ScriptedPen pen;
  CPenUpdater updater;
  EXPECT_EQ(updater.WaitPen(), insNoResource);
  EXPECT_TRUE(pen.Calls().empty());
}

TEST(Handles, AreFoundAnewByThePensId) {
  ScriptedPen pen;
  CPenUpdater updater;
  updater.m_penHandle = kOld;
  updater.m_penId = kMine.id;
  pen.pens = {{4, kOther}, {5, {.id = 0}}};
  EXPECT_EQ(updater.RefreshPenHandle(), kOld) << "the pen is gone";
  pen.pens = {{4, kOther}, {6, kMine}, {7, kMine}};
  EXPECT_EQ(updater.RefreshPenHandle(), 6);
  EXPECT_EQ(updater.m_penHandle, 6);
  EXPECT_EQ(pen.Calls("pcGetPenHandles").back(), "pcGetPenHandles(20)");
  for (const int32_t count : {-1, 21, 1 << 30}) {
    updater.m_penId = 1;
    pen.answers["pcGetPenHandles"] = {{.value = count}};
    EXPECT_EQ(updater.RefreshPenHandle(), 6) << count << " pens are no number to trust";
  }
}

TEST(Registry, AnAbortReachesTheFirstUpdaterOfItsPen) {
  TestLog log;
  EXPECT_EQ(CPenUpdater::AbortAll(), insSuccess);
  {
    CPenUpdater other, first, second;
    other.m_penId = 1;
    first.m_penId = second.m_penId = 7;
    EXPECT_EQ(CPenUpdater::Abort(8), insNotRunning);
    EXPECT_EQ(CPenUpdater::Abort(7), insSuccess);
    EXPECT_TRUE(!other.m_abort && first.m_abort && !second.m_abort);
    EXPECT_EQ(CPenUpdater::AbortAll(), insSuccess);
    EXPECT_TRUE(other.m_abort && second.m_abort);
  }
  EXPECT_EQ(CPenUpdater::Abort(7), insNotRunning);
  EXPECT_EQ(CPenUpdater::AbortAll(), insSuccess);
  EXPECT_EQ(log.Lines(), (Lines{"Abort: Abort. PenId=7", "Abort: Abort. PenId=1", "Abort: Abort. PenId=7",
                                "Abort: Abort. PenId=7"}));
}

TEST(Registry, HoldsUnderManyThreads) {
  constexpr uint64_t kThreads = 8;
  constexpr int kRuns = 20'000;
  constexpr int32_t kHandles = 1000;
  std::barrier together(kThreads);
  std::atomic<int> lost = 0, left = 0, claimed = 0;
  {
    std::vector<std::jthread> threads;
    for (uint64_t id = 1; id <= kThreads; ++id) {
      threads.emplace_back([&, id] {
        for (int run = 0; run < kRuns; ++run) {
          {
            CPenUpdater updater;
            updater.m_penId = id;
            lost += CPenUpdater::Abort(id) != insSuccess || !updater.m_abort;
          }
          left += CPenUpdater::Abort(id) != insNotRunning;
        }
        together.arrive_and_wait();
        const auto first = static_cast<int32_t>(id) * 10'000;
        for (int32_t i = 0; i < kHandles; ++i) claimed += CPenUpdater::SetDirtyHandle(first + i);
        together.arrive_and_wait();
        for (int32_t i = 0; i < kHandles; ++i) claimed += CPenUpdater::SetDirtyHandle(first + i);
      });
    }
  }
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(left, 0);
  EXPECT_EQ(claimed, kHandles * static_cast<int>(kThreads)) << "each handle is claimed once";
}
