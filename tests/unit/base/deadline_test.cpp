#include "base/deadline.h"

#include <gtest/gtest.h>
#include <ctime>

#include <limits>

// The monotonic clock stands where the test sets it.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming): the linker's name of a wrapped call.
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* now);

namespace {

using base::Deadline;

timespec& clockNow() {
  static timespec now{};
  return now;
}

class DeadlineTest : public testing::Test {
 protected:
  DeadlineTest() { clockNow() = {1000, 0}; }
};

TEST_F(DeadlineTest, Negative_NeverComes) {
  const Deadline never(-1);
  clockNow().tv_sec = 1000000;
  EXPECT_EQ(never.remainingMs(), -1);
  EXPECT_EQ(never.remainingMs(7), 7);
  EXPECT_FALSE(never.passed());
}

TEST_F(DeadlineTest, Zero_HasCome) {
  EXPECT_TRUE(Deadline(0).passed());
  EXPECT_EQ(Deadline(0).remainingMs(5), 0);
}

TEST_F(DeadlineTest, WhatIsLeft_IsRoundedUp) {
  const Deadline deadline(10);
  EXPECT_EQ(deadline.remainingMs(), 10);
  EXPECT_EQ(deadline.remainingMs(9), 9);
  EXPECT_EQ(deadline.remainingMs(11), 10);
  clockNow().tv_nsec = 1;
  EXPECT_EQ(deadline.remainingMs(), 10);
  clockNow().tv_nsec = 9999999;
  EXPECT_EQ(deadline.remainingMs(), 1);
  EXPECT_FALSE(deadline.passed());
  clockNow().tv_nsec = 10000000;
  EXPECT_EQ(deadline.remainingMs(), 0);
  EXPECT_TRUE(deadline.passed());
  clockNow().tv_sec += 5;
  EXPECT_EQ(deadline.remainingMs(), 0);
}

TEST_F(DeadlineTest, TheLongestTimeout_Fits) {
  constexpr int kLongest = std::numeric_limits<int>::max();
  EXPECT_EQ(Deadline(kLongest).remainingMs(), kLongest);
}

}  // namespace

extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* now) {
  if (clock != CLOCK_MONOTONIC) return -1;
  *now = clockNow();
  return 0;
}
