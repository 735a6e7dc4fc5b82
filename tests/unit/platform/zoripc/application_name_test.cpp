#include "platform/linux/zoripc/application_name.h"

#include <gtest/gtest.h>

#include <set>

using zoripc::busNameOf;

TEST(BusName, LettersAndDigits_StandAsTheyAre) {
  EXPECT_EQ(busNameOf("1"), "zoripc.App.a1");
  EXPECT_EQ(busNameOf("jxdownloader"), "zoripc.App.ajxdownloader");
  EXPECT_EQ(busNameOf("AZaz09"), "zoripc.App.aAZaz09");
}

TEST(BusName, OtherBytes_AreWrittenAsHexDigits) {
  EXPECT_EQ(busNameOf("_mac"), "zoripc.App.a_5fmac");
  EXPECT_EQ(busNameOf("a.b-c d"), "zoripc.App.aa_2eb_2dc_20d");
  EXPECT_EQ(busNameOf("\xC3\xA4"), "zoripc.App.a_c3_a4");
}

TEST(BusName, EveryByte_HasANameOfItsOwn) {
  std::set<std::string> names;
  for (int byte = 0; byte < 256; ++byte) names.insert(busNameOf(std::string(1, static_cast<char>(byte))));
  EXPECT_EQ(names.size(), 256U);
  EXPECT_EQ(names.count("zoripc.App.a_00"), 1U);
  EXPECT_EQ(names.count("zoripc.App.a_ff"), 1U);
}
