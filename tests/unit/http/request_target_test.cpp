#include "http/request_target.h"

#include <gtest/gtest.h>

#include <string>

namespace zorhtml {
namespace {

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
