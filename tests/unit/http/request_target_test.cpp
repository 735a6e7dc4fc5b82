#include "http/request_target.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>

#include "http/number_text.h"

namespace zorhtml {
namespace {

// The same rules, word for word: each search starts at the front again.
std::string naiveNormalise(std::string path) {
  for (;;) {
    const std::size_t at = path.find('%');
    if (at == std::string::npos || path.size() - at < 3) break;
    path[at] = static_cast<char>(scanHex(path.substr(at + 1, 2)).value_or(0));
    path.erase(at + 1, 2);
  }
  if (path.empty() || path[0] != '/') path = "/" + path;
  std::size_t end = std::min(path.find('?'), path.size());
  for (std::size_t i = 0; i < end; ++i) {
    if (path[i] == '\\') path[i] = '/';
  }
  for (std::size_t at = path.find("/../"); at < end; at = path.find("/../")) path[at + 1] = path[at + 2] = '_';
  for (std::size_t at = path.find("//"); at < end; at = path.find("//")) {
    path.erase(at);
    --end;
  }
  return path;
}

TEST(NormaliseTarget, PlainPath_IsKept) {
  EXPECT_EQ(normaliseTarget("/"), "/");
  EXPECT_EQ(normaliseTarget("/upload"), "/upload");
  EXPECT_EQ(normaliseTarget("/a/b?c=d&e"), "/a/b?c=d&e");
}

TEST(NormaliseTarget, NoLeadingSlash_GetsOne) {
  EXPECT_EQ(normaliseTarget("a"), "/a");
  EXPECT_EQ(normaliseTarget(""), "/");
  EXPECT_EQ(normaliseTarget("*"), "/*");
  EXPECT_EQ(normaliseTarget("?x"), "/?x");
  EXPECT_EQ(normaliseTarget("%2e%2e/x"), "/__/x");
}

TEST(NormaliseTarget, BackslashInFront_GetsASlashBeforeItAndIsCut) { EXPECT_EQ(normaliseTarget("\\a"), ""); }

TEST(NormaliseTarget, PercentEscapes_AreDecodedInTheQueryToo) {
  EXPECT_EQ(normaliseTarget("/a%20b"), "/a b");
  EXPECT_EQ(normaliseTarget("/%41%6a%6A"), "/Ajj");
  EXPECT_EQ(normaliseTarget("/x?y=%26"), "/x?y=&");
  EXPECT_EQ(normaliseTarget("/a%3fb//c"), "/a?b//c");
  EXPECT_EQ(normaliseTarget("/a%00b"), std::string("/a\0b", 4));
  EXPECT_EQ(normaliseTarget("/%ff"), "/\xff");
}

TEST(NormaliseTarget, DecodedPercent_IsDecodedAgain) {
  EXPECT_EQ(normaliseTarget("/%2541"), "/A");
  EXPECT_EQ(normaliseTarget("/%252541"), "/A");
  EXPECT_EQ(normaliseTarget("/%25%34%31"), std::string("/\0"
                                                       "41",
                                                       4));
}

TEST(NormaliseTarget, FewerThanTwoCharactersBehindPercent_EndTheDecoding) {
  EXPECT_EQ(normaliseTarget("/a%"), "/a%");
  EXPECT_EQ(normaliseTarget("/a%4"), "/a%4");
  EXPECT_EQ(normaliseTarget("/%25"), "/%");
  EXPECT_EQ(normaliseTarget("/%254"), "/%4");
  EXPECT_EQ(normaliseTarget("/a%%"), "/a%%");
}

TEST(NormaliseTarget, OneHexadecimalDigit_IsDecodedAlone) {
  EXPECT_EQ(normaliseTarget("/%4g!"), "/\x04!");
  EXPECT_EQ(normaliseTarget("/%+4!"), "/\x04!");
  EXPECT_EQ(normaliseTarget("/%-1!"), "/\xff!");
  EXPECT_EQ(normaliseTarget("/% 4!"), "/\x04!");
}

TEST(NormaliseTarget, NoHexadecimalDigit_GivesAZeroByte) {
  for (const char* digits : {"zz", "g4", "--", "  ", "0x", "0X"}) {
    EXPECT_EQ(normaliseTarget(std::string("/a%") + digits + "b"), std::string("/a\0b", 4)) << digits;
  }
}

TEST(NormaliseTarget, BackslashBeforeTheQuery_BecomesASlash) {
  EXPECT_EQ(normaliseTarget("/a\\b?c\\d"), "/a/b?c\\d");
  EXPECT_EQ(normaliseTarget("/a%5cb"), "/a/b");
}

TEST(NormaliseTarget, ParentSteps_AreNeutralisedInPlace) {
  EXPECT_EQ(normaliseTarget("/a/../b"), "/a/__/b");
  EXPECT_EQ(normaliseTarget("/../../x"), "/__/__/x");
  EXPECT_EQ(normaliseTarget("/a\\..\\b"), "/a/__/b");
  EXPECT_EQ(normaliseTarget("/a/%2e%2e%2fb"), "/a/__/b");
  EXPECT_EQ(normaliseTarget("/../"), "/__/");
}

TEST(NormaliseTarget, ParentStepAtTheEndOrInTheQuery_IsKept) {
  EXPECT_EQ(normaliseTarget("/a/.."), "/a/..");
  EXPECT_EQ(normaliseTarget("/a/..?b"), "/a/..?b");
  EXPECT_EQ(normaliseTarget("/x?y=/../z"), "/x?y=/../z");
  EXPECT_EQ(normaliseTarget("/a/.../b"), "/a/.../b");
}

TEST(NormaliseTarget, DoubleSlashBeforeTheQuery_CutsTheRest) {
  EXPECT_EQ(normaliseTarget("/a//b?x=1"), "/a");
  EXPECT_EQ(normaliseTarget("/a//"), "/a");
  EXPECT_EQ(normaliseTarget("/a/\\b"), "/a");
  EXPECT_EQ(normaliseTarget("//x"), "");
  EXPECT_EQ(normaliseTarget("http://host/x"), "/http:");
  EXPECT_EQ(normaliseTarget("/a///b//c"), "/a");
}

TEST(NormaliseTarget, DoubleSlashInTheQuery_IsKept) { EXPECT_EQ(normaliseTarget("/x?y=//z"), "/x?y=//z"); }

TEST(NormaliseTarget, RandomTargets_MatchTheNaiveRules) {
  const std::string alphabet = "%%%%%225fF0x/\\/..?a-+ \t";
  std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes in each run
  for (int round = 0; round < 20000; ++round) {
    std::string target;
    for (std::size_t length = random() % 24; length > 0; --length) target += alphabet[random() % alphabet.size()];
    ASSERT_EQ(normaliseTarget(target), naiveNormalise(target)) << target;
  }
}

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

// Searches from the front would take hours here.
TEST(NormaliseTarget, MegabytesOfEscapesAndSteps_TakeLinearTime) {
  constexpr int kMany = 1000000;
  EXPECT_TRUE(normaliseTarget("/" + repeated("%25", kMany)) == "/" + repeated(std::string("\0"
                                                                                          "5",
                                                                                          2),
                                                                              kMany / 2));
  EXPECT_EQ(normaliseTarget("/%" + repeated("25", kMany)), "/%");
  EXPECT_TRUE(normaliseTarget("/" + repeated("%41", kMany)) == "/" + repeated("A", kMany));
  EXPECT_TRUE(normaliseTarget(repeated("/..", kMany) + "/") == repeated("/__", kMany) + "/");
  EXPECT_EQ(normaliseTarget(repeated("/", kMany)), "");
}

}  // namespace
}  // namespace zorhtml
