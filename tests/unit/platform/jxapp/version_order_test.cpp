#include "platform/linux/jxapp/version_order.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using jxinstall::compareVersions;

int sign(int value) { return (value > 0) - (value < 0); }

// Each is older than all that follow it.
const std::vector<std::string> kAscending = {
    "0",      "0.9",   "1.0~~", "1.0~",    "1.0~rc1", "1.0~rc1-1", "1.0~rc2",           "1.0",
    "1.0-0a", "1.0-1", "1.0-2", "1.0-10",  "1.0a",    "1.0b",      "1.0+git1",          "1.0.0",
    "1.0.1",  "1.9",   "1.10",  "1.10-rc", "2",       "10",        "99999999999999999", "100000000000000000",
    "A",      "Z",     "a",     "aa",      "z",
};

TEST(VersionOrder, OfAscendingVersions_IsTheirs) {
  for (std::size_t i = 0; i < kAscending.size(); ++i) {
    for (std::size_t k = 0; k < kAscending.size(); ++k) {
      EXPECT_EQ(sign(compareVersions(kAscending[i], kAscending[k])), (i > k) - (i < k))
          << kAscending[i] << ' ' << kAscending[k];
    }
  }
}

TEST(VersionOrder, ZerosInFrontAndARevisionOfZero_AreNoDifference) {
  for (const auto& [one, other] : {std::pair("1.0", "1.00"), std::pair("1.0", "01.0"), std::pair("1.0", "1.0-0"),
                                   std::pair("1.0", "1.0-"), std::pair("a", "a0")}) {
    EXPECT_EQ(compareVersions(one, other), 0) << one << ' ' << other;
    EXPECT_EQ(compareVersions(other, one), 0) << one << ' ' << other;
  }
}

}  // namespace
