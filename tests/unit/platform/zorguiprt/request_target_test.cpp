// Paths and queries as clients write them.
#include "platform/linux/zorguiprt/request_target.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

using jxplatform::parseTarget;

namespace {

using Parameters = std::multimap<std::string, std::string>;

std::string pathOf(const std::string& target) { return parseTarget(target).path; }

Parameters parametersOf(const std::string& query) { return parseTarget("/?" + query).parameters; }

}  // namespace

TEST(RequestTarget, CodesInAPath_AreTheirBytes) {
  EXPECT_EQ(pathOf("/a%2Fb%2fc%20d+e"), "/a/b/c d+e");
  EXPECT_EQ(pathOf("/%00%ff"), std::string("/\0\xff", 3));
  EXPECT_EQ(pathOf("/%2525"), "/%25");
}

TEST(RequestTarget, WhatIsNoCode_StandsForItself) {
  for (const std::string path : {"/%", "/%4", "/%4g", "/%g4", "/%+4", "/%-4", "/% 4", "/100%"})
    EXPECT_EQ(pathOf(path), path);
}

TEST(RequestTarget, SlashesAtTheBeginning_AreOne) {
  EXPECT_EQ(pathOf("//a//b/"), "/a//b/");
  EXPECT_EQ(pathOf("/%2f/a"), "/a");
  EXPECT_EQ(pathOf("///"), "/");
  EXPECT_EQ(pathOf("/"), "/");
}

TEST(RequestTarget, WithoutASlashAtTheBeginning_StaysSo) {
  for (const std::string path : {"", "*", "a/b", "http://127.0.0.1/"}) EXPECT_EQ(pathOf(path), path);
}

TEST(RequestTarget, QueryAndFragment_AreNotPartOfThePath) {
  EXPECT_EQ(pathOf("/a?b=/c"), "/a");
  EXPECT_EQ(pathOf("/a%3Fb?c"), "/a?b");
  EXPECT_EQ(pathOf("/a#b?c=d"), "/a");
  EXPECT_EQ(parseTarget("/a?b=c#d").parameters, (Parameters{{"b", "c"}}));
}

TEST(RequestTarget, Query_IsReadPairByPair) {
  EXPECT_EQ(parametersOf("a=1&b=2&a=3"), (Parameters{{"a", "1"}, {"b", "2"}, {"a", "3"}}));
  EXPECT_EQ(parametersOf("a=b=c&d=&e"), (Parameters{{"a", "b=c"}, {"d", ""}, {"e", ""}}));
  EXPECT_EQ(parametersOf("a=1?b=2"), (Parameters{{"a", "1?b=2"}}));
  EXPECT_EQ(parametersOf(""), Parameters());
}

TEST(RequestTarget, CodesInAQuery_AreTheirBytesAndPlusIsABlank) {
  EXPECT_EQ(parametersOf("%61=%31%26+%2b&a%3Db=%3d"), (Parameters{{"a", "1& +"}, {"a=b", "="}}));
}
