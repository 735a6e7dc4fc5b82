#include "base/text.h"

#include <gtest/gtest.h>

#include <array>

namespace {

TEST(BeginsWith, LooksAtTheBeginningAlone) {
  EXPECT_TRUE(base::beginsWith("Error: x", "Error:"));
  EXPECT_TRUE(base::beginsWith("Error:", "Error:"));
  EXPECT_TRUE(base::beginsWith("", ""));
  EXPECT_FALSE(base::beginsWith("Error", "Error:"));
  EXPECT_FALSE(base::beginsWith("an Error:", "Error:"));
  EXPECT_FALSE(base::beginsWith("error:", "Error:"));
}

TEST(EndsWith, LooksAtTheEndAlone) {
  EXPECT_TRUE(base::endsWith("upload-0.zip", ".zip"));
  EXPECT_TRUE(base::endsWith(".zip", ".zip"));
  EXPECT_FALSE(base::endsWith("zip", ".zip"));
  EXPECT_FALSE(base::endsWith(".zip.new", ".zip"));
}

TEST(DigitsAndLetters, AreThoseOfAsciiAlone) {
  for (const char c : {'0', '5', '9'}) EXPECT_TRUE(base::isDigit(c) && !base::isLetter(c)) << c;
  for (const char c : {'a', 'm', 'z', 'A', 'M', 'Z'}) EXPECT_TRUE(base::isLetter(c) && !base::isDigit(c)) << c;
  for (const char c : {'/', ':', '@', '[', '`', '{', '\0', '\xC4'})
    EXPECT_FALSE(base::isLetter(c) || base::isDigit(c)) << c;
}

TEST(LowerCase, ChangesTheLettersOfAsciiAlone) {
  EXPECT_EQ(base::lowerCase("AZaz@[`{\xC4\x80 09"), "azaz@[`{\xC4\x80 09");
}

TEST(HexDigits, AreTwoForEachByte) {
  const std::array<unsigned char, 4> bytes{0x00, 0x0f, 0xa9, 0xff};
  EXPECT_EQ(base::hexDigits(bytes.data(), bytes.size()), "000fa9ff");
  EXPECT_EQ(base::hexDigits(bytes.data(), 0), "");
}

TEST(WithoutControls, Utf8AndWhatIsPrintable_Stay) {
  EXPECT_EQ(base::withoutControls("a ~\"\xc3\x96\x80\xff"), "a ~\"\xc3\x96\x80\xff");
  EXPECT_EQ(base::withoutControls("\x01\x1b[2J\x1f\x7f\n"), "??[2J???");
  EXPECT_EQ(base::withoutControls(std::string(1, '\0')), "?");
}

TEST(Printable, EveryOtherByteIsAQuestionMark) {
  EXPECT_EQ(base::printable("a ~\"\x1f\x7f\x80\n"), "a ~\"????");
  EXPECT_EQ(base::printable(std::string(1, '\0')), "?");
}

TEST(QuotedPrintable, IsCutAndHoldsNoQuote) {
  EXPECT_EQ(base::quotedPrintable("a\"b\n"), "\"a?b?\"");
  EXPECT_EQ(base::quotedPrintable(std::string(100, 'x')), '"' + std::string(100, 'x') + '"');
  EXPECT_EQ(base::quotedPrintable(std::string(101, 'x')), '"' + std::string(100, 'x') + "...\"");
}

}  // namespace
