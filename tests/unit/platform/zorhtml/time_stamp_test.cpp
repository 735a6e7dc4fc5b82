#include <gtest/gtest.h>
#include <zorhtml.h>

#include <ctime>
#include <limits>

using zorhtml::TimeStamp;

namespace {

constexpr long kLargest = std::numeric_limits<long>::max();
constexpr long kSmallest = std::numeric_limits<long>::min();

void expectTime(const TimeStamp& time, long seconds, long nanoseconds) {
  EXPECT_EQ(time.get().tv_sec, seconds);
  EXPECT_EQ(time.get().tv_nsec, nanoseconds);
}

}  // namespace

TEST(TimeStamp, New_IsZero) { expectTime(TimeStamp(), 0, 0); }

TEST(TimeStamp, Nanoseconds_AreCarriedIntoSeconds) {
  expectTime(TimeStamp(5, 0), 5, 0);
  expectTime(TimeStamp(1, 999999999), 1, 999999999);
  expectTime(TimeStamp(1, 1000000000), 2, 0);
  expectTime(TimeStamp(1, 2100000000), 3, 100000000);
  expectTime(TimeStamp(1, -1), 0, 999999999);
  expectTime(TimeStamp(0, -1000000000), -1, 0);
  expectTime(TimeStamp(0, -1500000000), -2, 500000000);
}

TEST(TimeStamp, Sum_Carries) {
  expectTime(TimeStamp(1, 600000000) + TimeStamp(2, 500000000), 4, 100000000);
  expectTime(TimeStamp(1, 500000000) + TimeStamp(2, 499999999), 3, 999999999);
}

TEST(TimeStamp, Difference_Borrows) {
  expectTime(TimeStamp(3, 100000000) - TimeStamp(1, 200000000), 1, 900000000);
  expectTime(TimeStamp(1, 0) - TimeStamp(1, 0), 0, 0);
  expectTime(TimeStamp(1, 0) - TimeStamp(1, 1), -1, 999999999);
}

TEST(TimeStamp, Order_IsBySecondsThenNanoseconds) {
  EXPECT_TRUE(TimeStamp(1, 5) < TimeStamp(2, 0));
  EXPECT_TRUE(TimeStamp(1, 5) < TimeStamp(1, 6));
  EXPECT_FALSE(TimeStamp(1, 5) < TimeStamp(1, 5));
  EXPECT_FALSE(TimeStamp(2, 0) < TimeStamp(1, 5));
  EXPECT_TRUE(TimeStamp(0, -1) < TimeStamp());
}

TEST(TimeStamp, BeyondTheRange_StaysAtItsEnd) {
  expectTime(TimeStamp(kLargest, 999999999) + TimeStamp(0, 1), kLargest, 999999999);
  expectTime(TimeStamp(kLargest, 0) + TimeStamp(5, 0), kLargest, 0);
  expectTime(TimeStamp(kSmallest, 0) - TimeStamp(5, 0), kSmallest, 0);
  expectTime(TimeStamp(kSmallest, 0) - TimeStamp(0, 1), kSmallest, 0);
  EXPECT_TRUE(TimeStamp(0, 0) < TimeStamp(0, 0) - TimeStamp(kSmallest, 0));
}

TEST(TimeStamp, Monotonic_IsTheMonotonicClock) {
  timespec before{};
  clock_gettime(CLOCK_MONOTONIC, &before);
  const TimeStamp now = TimeStamp::Monotonic();
  timespec after{};
  clock_gettime(CLOCK_MONOTONIC, &after);
  EXPECT_FALSE(now < TimeStamp(before.tv_sec, before.tv_nsec));
  EXPECT_FALSE(TimeStamp(after.tv_sec, after.tv_nsec) < now);
}
