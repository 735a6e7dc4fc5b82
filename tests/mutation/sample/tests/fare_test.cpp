#include "lib/fare.h"

#include <gtest/gtest.h>

TEST(Fare, LongWay_CostsMore) { EXPECT_EQ(fare(12), 5); }
TEST(Fare, ShortWay_CostsLess) { EXPECT_EQ(fare(3), 3); }
TEST(Counted, Count_IsWhatWasAskedFor) {
  EXPECT_EQ(counted(0), 0);
  EXPECT_EQ(counted(3), 3);
}
TEST(Careful, Doubt_RemovesNothing) { careful(false); }
