#include "platform/linux/services/cloudproxyd/options.h"

#include <gmock/gmock.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace cloudproxyd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The exit status, or -1 when the service would run.
int parse(std::vector<const char*> words, Options& options) {
  words.insert(words.begin(), "cloudproxyd");
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const auto status = parseOptions(static_cast<int>(words.size()), words.data(), options);
  testing::internal::GetCapturedStdout();
  testing::internal::GetCapturedStderr();
  return status.value_or(-1);
}

TEST(Options, Nothing_IsTheUsual) {
  Options options;
  EXPECT_EQ(parse({}, options), -1);
  EXPECT_TRUE(options.service.answersInfo);
  EXPECT_EQ(options.service.deviceType, "prod");
  EXPECT_EQ(options.service.listFormat, ListFormat::kNew);
  EXPECT_EQ(options.service.environments.size(), 2U);
  EXPECT_EQ(options.service.host, "gateway.example");
  EXPECT_EQ(options.gateway.host, "gateway.example");
  EXPECT_EQ(options.gateway.port, 443);
  EXPECT_EQ(options.gateway.caFile, "");
  EXPECT_EQ(options.stateFile, "");
}

TEST(Options, All_AreTaken) {
  Options options;
  EXPECT_EQ(parse({"--list-format", "both", "--no-info", "--gateway", "[::1]:8443", "--ca-file", "/dev/null",
                   "--device-type", "dev", "--env", "a:b,c", "--env=d", "--state", "/x/y"},
                  options),
            -1);
  EXPECT_FALSE(options.service.answersInfo);
  EXPECT_EQ(options.service.deviceType, "dev");
  EXPECT_EQ(options.service.listFormat, ListFormat::kBoth);
  ASSERT_EQ(options.service.environments.size(), 2U);
  EXPECT_THAT(options.service.environments[0].certificates, ElementsAre("b", "c"));
  EXPECT_EQ(options.service.environments[1].name, "d");
  EXPECT_EQ(options.service.host, "::1");
  EXPECT_EQ(options.gateway.port, 8443);
  EXPECT_EQ(options.gateway.caFile, "/dev/null");
  EXPECT_EQ(options.stateFile, "/x/y");
}

TEST(Options, HelpAndVersion_EndWithZero) {
  Options options;
  EXPECT_EQ(parse({"--help"}, options), 0);
  EXPECT_EQ(parse({"--version"}, options), 0);
  EXPECT_EQ(parse({"--wrong"}, options), 2);
}

TEST(ParseEnvironment, NameAndCertificates_AreTakenApart) {
  const Environment alone = parseEnvironment("prod").value();
  EXPECT_EQ(alone.name, "prod");
  EXPECT_THAT(alone.certificates, IsEmpty());
  EXPECT_THAT(parseEnvironment("a:").value().certificates, IsEmpty());
  const Environment three = parseEnvironment("<b> x:auth-ex,y z,q:r").value();
  EXPECT_EQ(three.name, "<b> x");
  EXPECT_THAT(three.certificates, ElementsAre("auth-ex", "y z", "q:r"));
}

TEST(ParseEnvironment, AnythingElse_IsNone) {
  for (const std::string text : {"", ":", ":a", "a:,", "a:b,", "a:,b", "a:b,,c", "a\n", "\x7F", "\xC3\xA4"}) {
    EXPECT_FALSE(parseEnvironment(text)) << text;
  }
  EXPECT_TRUE(parseEnvironment(std::string(64, 'x')));
  EXPECT_FALSE(parseEnvironment(std::string(65, 'x')));
  EXPECT_FALSE(parseEnvironment("a:" + std::string(65, 'x')));
}

std::string gatewayOf(const std::string& text) {
  const auto gateway = parseGateway(text);
  return gateway ? gateway->host + " " + std::to_string(gateway->port) : "none";
}

TEST(ParseGateway, HostNameOrAddress_IsTakenWithItsPort) {
  const std::string longestLabel(63, 'x');
  const std::string longestName = longestLabel + "." + longestLabel + "." + longestLabel + "." + std::string(61, 'y');
  EXPECT_EQ(gatewayOf("a.example"), "a.example 443");
  EXPECT_EQ(gatewayOf("A-1.b2"), "A-1.b2 443");
  EXPECT_EQ(gatewayOf("3a:1"), "3a 1");
  EXPECT_EQ(gatewayOf("127.0.0.1:65535"), "127.0.0.1 65535");
  EXPECT_EQ(gatewayOf("[::1]"), "::1 443");
  EXPECT_EQ(gatewayOf("[fe80::a:1]:8443"), "fe80::a:1 8443");
  EXPECT_EQ(gatewayOf(longestName), longestName + " 443");
}

TEST(ParseGateway, HostThatIsNeither_IsRefused) {
  const std::string longestLabel(63, 'x');
  const std::string tooLong = longestLabel + "." + longestLabel + "." + longestLabel + "." + std::string(62, 'y');
  for (const std::string& text : std::initializer_list<std::string>{"",
                                                                    ":",
                                                                    ":1",
                                                                    "a..b",
                                                                    ".a",
                                                                    "a.",
                                                                    ".",
                                                                    "-a",
                                                                    "a-",
                                                                    "a.-b",
                                                                    "a-.b",
                                                                    "a_b",
                                                                    "a b",
                                                                    "a\t",
                                                                    "a\n",
                                                                    "a,b",
                                                                    "a;b",
                                                                    "a%b",
                                                                    "*.a",
                                                                    "a/b",
                                                                    "https://a",
                                                                    "u@a",
                                                                    "a[b",
                                                                    "a]",
                                                                    "]",
                                                                    "\xC3\xA4",
                                                                    "<b>",
                                                                    longestLabel + "x",
                                                                    tooLong,
                                                                    "::1",
                                                                    "[",
                                                                    "[]",
                                                                    "[]:1",
                                                                    "[::1",
                                                                    "[::1]1",
                                                                    "[::1]]",
                                                                    "[a]",
                                                                    "[127.0.0.1]",
                                                                    "[fe80::1%lo]",
                                                                    "[::g]",
                                                                    "[1:2]",
                                                                    "[[::1]]"}) {
    EXPECT_EQ(gatewayOf(text), "none") << text;
  }
}

// What the resolver takes for another way to write an address: 127.1 is 127.0.0.1 there, and 010 is 8.
TEST(ParseGateway, NumbersThatAreNoAddress_AreRefused) {
  for (const char* const text :
       {"1", "127.1", "127.0.1", "127.0.0.256", "127.0.0.01", "1.2.3.4.5", "0x7f000001", "a.1", "a.0x1f", "0x"}) {
    EXPECT_EQ(gatewayOf(text), "none") << text;
  }
  EXPECT_EQ(gatewayOf("1.a"), "1.a 443");
  EXPECT_EQ(gatewayOf("1.x2"), "1.x2 443");
}

TEST(ParseGateway, PortThatIsNone_IsRefused) {
  for (const char* const port : {"", "0", "65536", "99999999999", "-1", "+1", "1x", " 1", "1 ", "1:1"}) {
    EXPECT_EQ(gatewayOf(std::string("a:") + port), "none") << port;
    EXPECT_EQ(gatewayOf(std::string("[::1]:") + port), "none") << port;
  }
}

}  // namespace
}  // namespace cloudproxyd
