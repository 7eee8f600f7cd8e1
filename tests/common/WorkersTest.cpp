#include "Common/Workers.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

// The names of those that are blocked on this thread out of the ones that hosts use.
std::string BlockedSignals() {
  static constexpr std::pair<int, const char*> kSignals[] = {{SIGHUP, "HUP"},   {SIGINT, "INT"},   {SIGUSR1, "USR1"},
                                                             {SIGPIPE, "PIPE"}, {SIGALRM, "ALRM"}, {SIGTERM, "TERM"},
                                                             {SIGCHLD, "CHLD"}, {SIGIO, "IO"}};
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  std::string names;
  for (const auto& [signal, name] : kSignals) {
    if (sigismember(&mask, signal) == 1) names += std::string(name) + ' ';
  }
  return names;
}

}  // namespace

TEST(Workers, AreOnePerUsableCoreAndNoMoreThanThereIsWorkFor) {
  cpu_set_t all;
  ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
  const auto cores = static_cast<unsigned>(CPU_COUNT(&all));
  EXPECT_EQ(CWorkers::CountFor(0), 1U);
  EXPECT_EQ(CWorkers::CountFor(1), 1U);
  EXPECT_EQ(CWorkers::CountFor(cores), cores);
  EXPECT_EQ(CWorkers::CountFor(SIZE_MAX), cores);
  cpu_set_t one;
  CPU_ZERO(&one);
  for (int core = 0; CPU_COUNT(&one) == 0; ++core) {
    if (CPU_ISSET(core, &all)) CPU_SET(core, &one);
  }
  ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  EXPECT_EQ(CWorkers::CountFor(SIZE_MAX), 1U);
  sched_setaffinity(0, sizeof all, &all);
}

TEST(Workers, DoEveryPieceOnce) {
  for (const size_t pieces : {0U, 1U, 1000U}) {
    std::vector<std::atomic<int>> done(pieces);
    CWorkers::Share(pieces, [&](size_t piece) { ++done.at(piece); });
    for (const std::atomic<int>& times : done) EXPECT_EQ(times, 1);
  }
}

TEST(Workers, RunOnThreadsOfTheirOwnButTheFirst) {
  std::vector<std::thread::id> threads(4);
  CWorkers::Run(4, [&](unsigned worker) { threads.at(worker) = std::this_thread::get_id(); });
  EXPECT_EQ(threads[0], std::this_thread::get_id());
  EXPECT_EQ(std::set(threads.begin(), threads.end()).size(), 4U);
  EXPECT_FALSE(std::set(threads.begin(), threads.end()).contains(std::thread::id()));
}

TEST(Workers, WhatABodyThrowsIsThrownOnWhenAllHaveReturned) {
  for (const unsigned thrower : {0U, 1U, 3U}) {
    std::atomic<int> returned = 0;
    const auto body = [&](unsigned worker) {
      if (worker == thrower) throw std::bad_alloc();
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      ++returned;
    };
    EXPECT_THROW(CWorkers::Run(4, body), std::bad_alloc) << thrower;
    EXPECT_EQ(returned, 3) << thrower;
  }
}

TEST(Workers, TheRestDoesTheWorkOfThreadsThatCannotBeHad) {
  pthread_attr_t usual;
  pthread_attr_t huge;
  ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
  ASSERT_EQ(pthread_attr_init(&huge), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&huge, SIZE_MAX / 4 * 3), 0);
  ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
  std::atomic<size_t> sum = 0;
  std::set<std::thread::id> threads;
  std::atomic<size_t> next = 0;
  CWorkers::Run(4, [&](unsigned) {
    threads.insert(std::this_thread::get_id());
    for (size_t piece = 0; (piece = next++) < 100;) sum += piece;
  });
  pthread_setattr_default_np(&usual);
  EXPECT_EQ(threads.size(), 1U) << "no thread was refused";
  EXPECT_EQ(sum, 4950U);
}

TEST(Workers, TakeNoSignalsOfTheHost) {
  std::vector<std::string> blocked(3);
  CWorkers::Run(3, [&](unsigned worker) { blocked.at(worker) = BlockedSignals(); });
  EXPECT_EQ(blocked[0], "") << "the host's thread";
  EXPECT_EQ(blocked[1], "HUP INT USR1 PIPE ALRM TERM CHLD IO ");
  EXPECT_EQ(blocked[2], blocked[1]);
  EXPECT_EQ(BlockedSignals(), "");
}

TEST(FirstFailure, IsTheOneWithTheLowestIndex) {
  CFirstFailure<std::string> first;
  EXPECT_FALSE(first.IsMoot(1000));
  EXPECT_FALSE(first.failure());
  first.Report(5, "five");
  first.Report(7, "seven");
  first.Report(3, "three");
  first.Report(3, "three again");
  EXPECT_EQ(first.index(), 3U);
  EXPECT_EQ(first.failure(), "three");
  EXPECT_TRUE(first.IsMoot(4));
  EXPECT_FALSE(first.IsMoot(3));
}
