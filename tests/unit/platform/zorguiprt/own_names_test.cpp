#include "platform/linux/zorguiprt/own_names.h"

#include <gtest/gtest.h>

using jxplatform::OwnNames;
using jxplatform::parseServerAddress;

TEST(ServerAddress, AddressAndPort_AreRead) {
  const auto read = [](const char* text) {
    const auto address = parseServerAddress(text);
    return address ? address->host + " " + std::to_string(address->port) : "none";
  };
  EXPECT_EQ(read("127.0.0.1:6380"), "127.0.0.1 6380");
  EXPECT_EQ(read("[::1]:0"), "::1 0");
  EXPECT_EQ(read("localhost:80"), "localhost 80");
  EXPECT_EQ(read("0.0.0.0:65535"), "0.0.0.0 65535");
}

TEST(ServerAddress, AnythingElse_IsRefused) {
  for (const char* const text : {"",
                                 ":",
                                 "127.0.0.1",
                                 "127.0.0.1:",
                                 ":6380",
                                 "6380",
                                 "127.0.0.1:65536",
                                 "127.0.0.1:-1",
                                 "127.0.0.1:6380x",
                                 "::1:6380",
                                 "[::1]",
                                 "[::1]6380",
                                 "[::1",
                                 "[127.0.0.1]:1",
                                 "256.0.0.1:1",
                                 "127.1:1",
                                 "example.org:1",
                                 "127.0.0.1:000080",
                                 "127.0.0.1 :1",
                                 "[::1]:1:2"}) {
    EXPECT_FALSE(parseServerAddress(text)) << text;
  }
}

TEST(OwnNames, LoopbackServer_AnswersToLoopbackNamesAlone) {
  const OwnNames names({"127.0.0.1", 6380});
  for (const char* const host : {"127.0.0.1:6380", "localhost:6380", "LocalHost:6380", "[::1]:6380"}) {
    EXPECT_TRUE(names.isOwnHost(host)) << host;
  }
  for (const char* const host : {"",
                                 "127.0.0.1",
                                 "127.0.0.1:6381",
                                 "localhost",
                                 "localhost.:6380",
                                 "evil.example:6380",
                                 "127.0.0.1.evil.example:6380",
                                 "localhost.evil.example:6380",
                                 "192.168.1.2:6380",
                                 "127.0.0.2:6380",
                                 "[::2]:6380",
                                 "::1:6380",
                                 "[::1]",
                                 "[::1]x:6380",
                                 "127.0.0.1:6380:6380",
                                 "127.0.0.1:6380/",
                                 " 127.0.0.1:6380",
                                 "127.0.0.1:6380,evil",
                                 "user@127.0.0.1:6380",
                                 "[127.0.0.1]:6380",
                                 "2130706433:6380",
                                 "0x7f.1:6380",
                                 "127.1:6380",
                                 "127.0.0.1:",
                                 "127.0.0.1:06380x"}) {
    EXPECT_FALSE(names.isOwnHost(host)) << host;
  }
  EXPECT_FALSE(names.isOwnHost(std::string("localhost\0:6380", 15)));
}

TEST(OwnNames, AddressItself_IsAName) {
  EXPECT_TRUE(OwnNames({"127.8.8.8", 1}).isOwnHost("127.8.8.8:1"));
  EXPECT_TRUE(OwnNames({"::1", 1}).isOwnHost("[::1]:1"));
  EXPECT_TRUE(OwnNames({"localhost", 1}).isOwnHost("127.0.0.1:1"));
}

TEST(OwnNames, ServerForOthers_AnswersToEveryNumericAddress) {
  for (const char* const bound : {"0.0.0.0", "::", "192.168.1.2"}) {
    const OwnNames names({bound, 6380});
    EXPECT_TRUE(names.isOwnHost("192.168.1.2:6380")) << bound;
    EXPECT_TRUE(names.isOwnHost("[2001:db8::1]:6380")) << bound;
    EXPECT_TRUE(names.isOwnHost("localhost:6380")) << bound;
    EXPECT_FALSE(names.isOwnHost("terminal.example:6380")) << bound;
    EXPECT_FALSE(names.isOwnHost("192.168.1.2:80")) << bound;
    EXPECT_FALSE(names.isOwnHost("[not an address]:6380")) << bound;
  }
}

TEST(OwnNames, Port80_MayBeLeftOut) {
  EXPECT_TRUE(OwnNames({"127.0.0.1", 80}).isOwnHost("localhost"));
  EXPECT_TRUE(OwnNames({"127.0.0.1", 80}).isOwnHost("localhost:80"));
}

TEST(OwnNames, Origin_IsTheHostWithItsScheme) {
  const OwnNames names({"127.0.0.1", 6380});
  EXPECT_TRUE(names.isOwnOrigin("http://127.0.0.1:6380"));
  EXPECT_TRUE(names.isOwnOrigin("http://localhost:6380"));
  for (const char* const origin :
       {"", "null", "https://127.0.0.1:6380", "http://127.0.0.1", "http://127.0.0.1:6380/", "127.0.0.1:6380",
        "http://evil.example", "http://evil.example:6380", "http://127.0.0.1:6380.evil.example"}) {
    EXPECT_FALSE(names.isOwnOrigin(origin)) << origin;
  }
}
