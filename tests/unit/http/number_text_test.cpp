#include "http/number_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <optional>
#include <random>
#include <string>

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

// The standard makes it no number; the terminal's C library reads the zero and passes over the letter.
TEST(ScanHex, PrefixWithoutADigitBehind_IsZero) {
  for (const char* text : {"0x", "0X", "0xg", "0x ", "0x-5", "0x0x5", "-0x", "+0X", " \t0x"})
    EXPECT_EQ(scanHex(text), 0U) << text;
}

TEST(ScanHex, NoDigits_GiveNothing) {
  for (const char* text : {"", "g", "x1", "-", "-x", " ", ";5"}) EXPECT_FALSE(scanHex(text)) << text;
}

TEST(ScanHex, Overflow_GivesTheLargestOf32Bits) {
  EXPECT_EQ(scanHex("100000000"), 4294967295U);
  EXPECT_EQ(scanHex("100000005"), 4294967295U);
  EXPECT_EQ(scanHex("-100000005"), 4294967295U);
  EXPECT_EQ(scanHex(std::string(1000, 'f')), 4294967295U);
}

// What sscanf of a 32-bit C library makes of `text` with "%d", "%u" and "%x". One whose long has 64 bits is given a
// form that tells what does not fit.
constexpr bool kWideLong = sizeof(long) > sizeof(std::int32_t);

std::optional<std::int32_t> systemDecimal(const std::string& text) {
  long value = 0;
  if (std::sscanf(text.c_str(), "%ld", &value) != 1) return std::nullopt;  // NOLINT(cert-err34-c): what is tested
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(std::clamp<long>(value, Limits::min(), Limits::max()));
}

std::optional<std::uint32_t> systemUnsigned(std::string text, const char* format) {
  const std::size_t sign = text.find_first_not_of(" \t\n\v\f\r");
  const bool negative = kWideLong && sign != std::string::npos && text[sign] == '-';
  if (negative) text[sign] = '+';
  unsigned long value = 0;
  if (std::sscanf(text.c_str(), format, &value) != 1) return std::nullopt;
  constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();
  if (value > kMost) return kMost;
  const auto number = static_cast<std::uint32_t>(value);
  return negative ? std::uint32_t{0} - number : number;
}

TEST(Scan, GeneratedTexts_GiveWhatTheSystemsScanfGives) {
  const std::string characters = std::string(" \t\n\v\f\r++--00000xXxX0123456789abcdefABCDEFgGzZ;.,\x80\xff") + '\0';
  std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts in each run
  std::string text;
  for (int round = 0; round < 1000000; ++round) {
    text.clear();
    for (std::size_t left = random() % 14; left > 0; --left) text += characters[random() % characters.size()];
    ASSERT_EQ(scanDecimal(text), systemDecimal(text)) << testing::PrintToString(text);
    ASSERT_EQ(scanUnsigned(text), systemUnsigned(text, "%lu")) << testing::PrintToString(text);
    ASSERT_EQ(scanHex(text), systemUnsigned(text, "%lx")) << testing::PrintToString(text);
  }
}

}  // namespace
}  // namespace zorhtml
