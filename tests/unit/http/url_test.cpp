#include "http/url.h"

#include <gtest/gtest.h>

#include <tuple>

namespace zorhtml {
namespace {

using Parts = std::tuple<std::string, std::string, int, std::string>;

Parts split(const std::string& url) {
  std::string scheme = "left", host = "over", path = "text";
  std::uint16_t port = 9;
  parseUrl(url, scheme, host, port, path);
  return {scheme, host, port, path};
}

TEST(ParseUrl, AllParts_AreSplit) {
  EXPECT_EQ(split("http://host:8080/a?b"), (Parts{"http", "host", 8080, "/a?b"}));
  EXPECT_EQ(split("HTTPS://Host.example/"), (Parts{"HTTPS", "Host.example", 0, "/"}));
}

TEST(ParseUrl, NoScheme_IsHttp) { EXPECT_EQ(split("host:8080/a?b"), (Parts{"http", "host", 8080, "/a?b"})); }

TEST(ParseUrl, NoPath_IsTheRoot) {
  EXPECT_EQ(split("host"), (Parts{"http", "host", 0, "/"}));
  EXPECT_EQ(split("http://host:1"), (Parts{"http", "host", 1, "/"}));
  EXPECT_EQ(split(""), (Parts{"http", "", 0, "/"}));
  EXPECT_EQ(split("://"), (Parts{"", "", 0, "/"}));
}

TEST(ParseUrl, QueryWithoutASlash_BelongsToTheHost) {
  EXPECT_EQ(split("host?a=b"), (Parts{"http", "host?a=b", 0, "/"}));
}

TEST(ParseUrl, FirstOfEachMark_Counts) {
  EXPECT_EQ(split("x://h:1/p/q?u=y://z:2/r"), (Parts{"x", "h", 1, "/p/q?u=y://z:2/r"}));
}

TEST(ParseUrl, SchemeMarkInThePath_EndsTheScheme) {
  EXPECT_EQ(split("host/a?u=x://y/z"), (Parts{"host/a?u=x", "y", 0, "/z"}));
}

TEST(ParseUrl, FirstColonOfTheHost_BeginsThePort) {
  EXPECT_EQ(split("http://[::1]:80/x"), (Parts{"http", "[", 0, "/x"}));
  EXPECT_EQ(split("user:pw@host/"), (Parts{"http", "user", 0, "/"}));
  EXPECT_EQ(split("a:1:2/"), (Parts{"http", "a", 1, "/"}));
}

TEST(ParseUrl, ColonInThePath_IsNoPort) { EXPECT_EQ(split("host/a:1"), (Parts{"http", "host", 0, "/a:1"})); }

TEST(ParseUrl, OddPorts_AreReadAsAShortNumber) {
  EXPECT_EQ(split("h:/"), (Parts{"http", "h", 0, "/"}));
  EXPECT_EQ(split("h:x/"), (Parts{"http", "h", 0, "/"}));
  EXPECT_EQ(split("h: 80x/"), (Parts{"http", "h", 80, "/"}));
  EXPECT_EQ(split("h:65535/"), (Parts{"http", "h", 65535, "/"}));
  EXPECT_EQ(split("h:70000/"), (Parts{"http", "h", 4464, "/"}));
  EXPECT_EQ(split("h:-1/"), (Parts{"http", "h", 65535, "/"}));
  EXPECT_EQ(split("h:99999999999999999999/"), (Parts{"http", "h", 65535, "/"}));
}

}  // namespace
}  // namespace zorhtml
