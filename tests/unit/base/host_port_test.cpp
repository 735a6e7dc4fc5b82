#include "base/host_port.h"

#include <gtest/gtest.h>

namespace {

using base::splitHostPort;

TEST(ParsePort, OneToFiveDigits_AreAPort) {
  EXPECT_EQ(base::parsePort("0"), 0);
  EXPECT_EQ(base::parsePort("80"), 80);
  EXPECT_EQ(base::parsePort("00080"), 80);
  EXPECT_EQ(base::parsePort("65535"), 65535);
  for (const char* text : {"", "65536", "99999", "000080", "-1", "+80", " 80", "80 ", "8a", "0x50"})
    EXPECT_EQ(base::parsePort(text), std::nullopt) << text;
}

TEST(SplitHostPort, HostsAndPorts) {
  struct Row {
    const char* text;
    const char* host;
    bool bracketed;
    std::optional<int> port;
  };
  for (const Row& row : {Row{"", "", false, {}}, Row{"terminal", "terminal", false, {}}, Row{":80", "", false, 80},
                         Row{"terminal:6370", "terminal", false, 6370}, Row{"[::1]", "::1", true, {}},
                         Row{"[::1]:0", "::1", true, 0}, Row{"[]", "", true, {}}, Row{"[a:b", "", false, -1},
                         Row{"[::1]80", "", false, -1}, Row{"[::1]x:80", "", false, -1}, Row{"a:", "", false, -1},
                         Row{"a:b", "", false, -1}, Row{"::1", "", false, -1}, Row{"[::1]:", "", false, -1}}) {
    const auto split = splitHostPort(row.text);
    if (row.port == -1) {
      EXPECT_FALSE(split) << row.text;
      continue;
    }
    ASSERT_TRUE(split) << row.text;
    EXPECT_EQ(split->host, row.host);
    EXPECT_EQ(split->bracketed, row.bracketed) << row.text;
    EXPECT_EQ(split->port, row.port) << row.text;
  }
}

TEST(HostAndPort, AColonPutsTheHostInBrackets) {
  EXPECT_EQ(base::hostAndPort("terminal", 80), "terminal:80");
  EXPECT_EQ(base::hostAndPort("::1", 6370), "[::1]:6370");
}

TEST(NumericAddresses, AreToldFromNames) {
  EXPECT_TRUE(base::isIpv4("192.0.2.1"));
  EXPECT_TRUE(base::isIpv6("2001:db8::1"));
  for (const char* text : {"", "192.0.2", "192.0.2.256", "::1", "terminal", "192.0.2.1:80"})
    EXPECT_FALSE(base::isIpv4(text)) << text;
  for (const char* text : {"", "[::1]", "fe80::1%eth0", "192.0.2.1", ":::"}) EXPECT_FALSE(base::isIpv6(text)) << text;
  EXPECT_FALSE(base::isIpv4(std::string("192.0.2.1\0x", 11)));
  EXPECT_FALSE(base::isIpv6(std::string("::1\0x", 5)));
}

}  // namespace
