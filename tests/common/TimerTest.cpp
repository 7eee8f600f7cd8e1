#include "Common/Timer.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "tests/support/FakeClock.h"

TEST(Timer, CountsWithoutStoringAndFinishStores) {
  FakeClock clock(100);
  CTimer timer;
  EXPECT_EQ(timer.Start(), 100);
  clock.Sleep(std::chrono::seconds(7));
  EXPECT_EQ(timer.Count(), 7);
  EXPECT_EQ(timer.ElapsedTime(), 0);
  EXPECT_EQ(timer.Finish(), 7);
  clock.Sleep(std::chrono::seconds(1));
  EXPECT_EQ(timer.ElapsedTime(), 7);
  timer.Start();
  EXPECT_EQ(timer.ElapsedTime(), 0);
}

TEST(Timer, CountsAcrossTheEndOf32BitSeconds) {
  FakeClock clock(INT32_MAX - 3);
  CTimer timer;
  EXPECT_EQ(timer.Start(), INT32_MAX - 3);
  clock.Sleep(std::chrono::seconds(10));
  EXPECT_EQ(timer.Count(), 10);
  EXPECT_EQ(timer.Finish(), 10);
  EXPECT_EQ(timer.Start(), INT32_MIN + 6);
}
