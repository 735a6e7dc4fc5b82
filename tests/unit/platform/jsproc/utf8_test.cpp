#include "platform/linux/jsproc/utf8.h"

#include <gtest/gtest.h>

using jxplatform::fromCesu8;
using jxplatform::toCesu8;

namespace {

std::string back(const std::string& bytes) { return fromCesu8(bytes.data(), bytes.size()); }

constexpr const char* kReplacement = "\xEF\xBF\xBD";

}  // namespace

TEST(Utf8, CharactersOfTheBasicPlane_StayAsTheyAre) {
  const std::string text("a\0\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", 19);
  EXPECT_EQ(toCesu8(text), text);
  EXPECT_EQ(back(text), text);
}

TEST(Utf8, CharacterAboveIt_BecomesTwoSurrogatesAndBack) {
  EXPECT_EQ(toCesu8("\xF0\x90\x80\x80"), "\xED\xA0\x80\xED\xB0\x80");
  EXPECT_EQ(toCesu8("\xF0\x9F\x98\x80"), "\xED\xA0\xBD\xED\xB8\x80");
  EXPECT_EQ(toCesu8("\xF4\x8F\xBF\xBF"), "\xED\xAF\xBF\xED\xBF\xBF");
  EXPECT_EQ(back("\xED\xA0\x80\xED\xB0\x80"), "\xF0\x90\x80\x80");
  EXPECT_EQ(back("\xED\xA0\xBD\xED\xB8\x80"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(back("\xED\xAF\xBF\xED\xBF\xBF"), "\xF4\x8F\xBF\xBF");
}

TEST(Utf8, BytesThatAreNotUtf8_BecomeReplacementsOneEach) {
  const std::string r = kReplacement;
  EXPECT_EQ(toCesu8("a\x80z"), "a" + r + "z");
  EXPECT_EQ(toCesu8("\xFF\xFE"), r + r);
  EXPECT_EQ(toCesu8("\xC0\x80"), r + r);                  // overlong zero
  EXPECT_EQ(toCesu8("\xE0\x80\xAF"), r + r + r);          // overlong slash
  EXPECT_EQ(toCesu8("\xF4\x90\x80\x80"), r + r + r + r);  // beyond the last character
  EXPECT_EQ(toCesu8("\xE2\x82"), r + r);                  // cut off
  EXPECT_EQ(toCesu8("\xE2\x82z"), r + r + "z");
}

TEST(Utf8, LoneSurrogate_BecomesOneReplacement) {
  const std::string r = kReplacement;
  EXPECT_EQ(toCesu8("\xED\xA0\x80"), r);
  EXPECT_EQ(back("\xED\xA0\x80"), r);
  EXPECT_EQ(back("\xED\xB0\x80"), r);
  EXPECT_EQ(back("\xED\xA0\x80z"), r + "z");
  EXPECT_EQ(back("\xED\xA0\x80\xED\xA0\x80\xED\xB0\x80"), r + "\xF0\x90\x80\x80");
}

TEST(Utf8, TextCutAtEveryByte_StaysValidOnBothWays) {
  const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  for (std::size_t size = 0; size <= text.size(); ++size) {
    const std::string once = back(toCesu8(text.substr(0, size)));
    EXPECT_EQ(back(toCesu8(once)), once) << size;
  }
  EXPECT_EQ(back(toCesu8(text)), text);
}
