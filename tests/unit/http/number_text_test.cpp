#include "http/number_text.h"

#include <gtest/gtest.h>

namespace zorhtml {
namespace {

TEST(ScanDecimal, DigitsWithTextBehind_GiveTheNumber) {
  EXPECT_EQ(scanDecimal("200"), 200);
  EXPECT_EQ(scanDecimal("200abc"), 200);
  EXPECT_EQ(scanDecimal("007"), 7);
  EXPECT_EQ(scanDecimal("12 34"), 12);
}

TEST(ScanDecimal, LeadingSpaceAndSign_AreRead) {
  EXPECT_EQ(scanDecimal(" \t\n5"), 5);
  EXPECT_EQ(scanDecimal("-5"), -5);
  EXPECT_EQ(scanDecimal("+5"), 5);
}

TEST(ScanDecimal, NoDigits_GiveNothing) {
  EXPECT_FALSE(scanDecimal(""));
  EXPECT_FALSE(scanDecimal("abc"));
  EXPECT_FALSE(scanDecimal("-"));
  EXPECT_FALSE(scanDecimal("- 5"));
  EXPECT_FALSE(scanDecimal("--5"));
  EXPECT_FALSE(scanDecimal("   "));
}

TEST(ScanDecimal, OutOfRange_GivesTheNearestLimit) {
  EXPECT_EQ(scanDecimal("2147483647"), 2147483647);
  EXPECT_EQ(scanDecimal("2147483648"), 2147483647);
  EXPECT_EQ(scanDecimal("4294967301"), 2147483647);
  EXPECT_EQ(scanDecimal("99999999999999999999999999"), 2147483647);
  EXPECT_EQ(scanDecimal("-2147483648"), -2147483647 - 1);
  EXPECT_EQ(scanDecimal("-2147483649"), -2147483647 - 1);
  EXPECT_EQ(scanDecimal("-99999999999999999999999999"), -2147483647 - 1);
}

TEST(ScanDecimal, ZeroByte_EndsTheNumber) { EXPECT_EQ(scanDecimal(std::string("1\0002", 3)), 1); }

TEST(ScanUnsigned, SignAndOverflow_WrapAsIn32Bits) {
  EXPECT_EQ(scanUnsigned("8080"), 8080U);
  EXPECT_EQ(scanUnsigned("-1"), 4294967295U);
  EXPECT_EQ(scanUnsigned("4294967296"), 4294967295U);
  EXPECT_EQ(scanUnsigned("-4294967296"), 4294967295U);
  EXPECT_FALSE(scanUnsigned("x"));
}

TEST(ScanHex, DigitsOfEitherCase_GiveTheNumber) {
  EXPECT_EQ(scanHex("ff"), 255U);
  EXPECT_EQ(scanHex("FF"), 255U);
  EXPECT_EQ(scanHex("1a;ext=2"), 26U);
  EXPECT_EQ(scanHex("4g"), 4U);
  EXPECT_EQ(scanHex("ffffffff"), 4294967295U);
}

TEST(ScanHex, PrefixSpaceAndSign_AreRead) {
  EXPECT_EQ(scanHex("0x1A"), 26U);
  EXPECT_EQ(scanHex("0X1a"), 26U);
  EXPECT_EQ(scanHex(" 5"), 5U);
  EXPECT_EQ(scanHex("+5"), 5U);
  EXPECT_EQ(scanHex("-5"), 4294967291U);
  EXPECT_EQ(scanHex("-0"), 0U);
}

TEST(ScanHex, NoDigits_GiveNothing) {
  for (const char* text : {"", "g", "0x", "0xg", "x1", "-", " ", ";5"}) EXPECT_FALSE(scanHex(text)) << text;
}

TEST(ScanHex, Overflow_GivesTheLargestOf32Bits) {
  EXPECT_EQ(scanHex("100000000"), 4294967295U);
  EXPECT_EQ(scanHex("100000005"), 4294967295U);
  EXPECT_EQ(scanHex("-100000005"), 4294967295U);
  EXPECT_EQ(scanHex(std::string(1000, 'f')), 4294967295U);
}

}  // namespace
}  // namespace zorhtml
