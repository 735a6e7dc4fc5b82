#include "http/header_text.h"

#include <gtest/gtest.h>

namespace zorhtml {
namespace {

using Words = std::vector<std::string>;

TEST(SplitWords, RunsOfWhiteSpace_SeparateWords) {
  EXPECT_EQ(splitWords("GET / HTTP/1.1"), (Words{"GET", "/", "HTTP/1.1"}));
  EXPECT_EQ(splitWords(" \t a \v\f b\r\n"), (Words{"a", "b"}));
}

TEST(SplitWords, NothingButWhiteSpace_GivesNoWords) {
  EXPECT_TRUE(splitWords("").empty());
  EXPECT_TRUE(splitWords(" \t ").empty());
}

TEST(SplitWords, BytesAbove127_BelongToWords) { EXPECT_EQ(splitWords("\xe9\xa0 \xff"), (Words{"\xe9\xa0", "\xff"})); }

TEST(TrimSpace, BothEnds_AreStripped) {
  EXPECT_EQ(trimSpace(" \t\v\f\r\n a b \t"), "a b");
  EXPECT_EQ(trimSpace("a"), "a");
  EXPECT_EQ(trimSpace(" \t "), "");
  EXPECT_EQ(trimSpace(""), "");
}

TEST(ToLowerCopy, LettersOnly_Change) { EXPECT_EQ(toLowerCopy("Keep-ALIVE\xC4@[`{"), "keep-alive\xC4@[`{"); }

TEST(IsFramingKey, TheFourFieldsOfTheEngine_AreRecognised) {
  for (const char* key : {"content-length", "content-type", "content-encoding", "transfer-encoding"}) {
    EXPECT_TRUE(isFramingKey(key)) << key;
  }
  for (const char* key : {"connection", "content-disposition", "Content-Length", ""}) {
    EXPECT_FALSE(isFramingKey(key)) << key;
  }
}

}  // namespace
}  // namespace zorhtml
