#include "http/base64.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <utility>
#include <vector>

namespace zorhtml {
namespace {

std::string encode(const std::string& bytes) {
  std::vector<char> text((bytes.size() + 2) / 3 * 4 + 1, 'x');
  const int length =
      base64Encode(bytes.data(), static_cast<int>(bytes.size()), text.data(), static_cast<int>(text.size()));
  EXPECT_EQ(length, static_cast<int>(text.size()) - 1);
  EXPECT_EQ(text.back(), '\0');
  return {text.data(), text.size() - 1};
}

std::string decode(const std::string& text) {
  std::vector<char> bytes(text.size() + 1);
  const int length =
      base64Decode(text.data(), static_cast<int>(text.size()), bytes.data(), static_cast<int>(bytes.size()));
  EXPECT_GE(length, 0);
  return {bytes.data(), static_cast<std::size_t>(length)};
}

// RFC 4648, section 10.
const std::vector<std::pair<std::string, std::string>> kVectors = {{"", ""},
                                                                   {"f", "Zg=="},
                                                                   {"fo", "Zm8="},
                                                                   {"foo", "Zm9v"},
                                                                   {"foob", "Zm9vYg=="},
                                                                   {"fooba", "Zm9vYmE="},
                                                                   {"foobar", "Zm9vYmFy"}};

TEST(Base64, StandardVectors_GoBothWays) {
  for (const auto& [bytes, text] : kVectors) {
    EXPECT_EQ(encode(bytes), text);
    EXPECT_EQ(decode(text), bytes);
  }
}

TEST(Base64, Alphabet_StandsForZeroTo63) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  for (int value = 0; value < 64; value += 4) {
    const int group = value << 18 | (value + 1) << 12 | (value + 2) << 6 | (value + 3);
    for (const int shift : {16, 8, 0}) bytes += static_cast<char>(group >> shift & 255);
  }
  EXPECT_EQ(encode(bytes), alphabet);
  EXPECT_EQ(decode(alphabet), bytes);
}

TEST(Base64Encode, BufferOfTheEncodedLength_IsTooSmall) {
  char text[5] = {'x', 'x', 'x', 'x', 'x'};
  EXPECT_EQ(base64Encode("a", 1, text, 4), -1);
  EXPECT_EQ(std::string(text, 5), "xxxxx");
  EXPECT_EQ(base64Encode("a", 1, text, 5), 4);
  EXPECT_STREQ(text, "YQ==");
}

TEST(Base64Encode, NothingToEncode_NeedsRoomForTheZeroByte) {
  char text[1] = {'x'};
  EXPECT_EQ(base64Encode("", 0, text, 0), -1);
  EXPECT_EQ(text[0], 'x');
  EXPECT_EQ(base64Encode("", 0, text, 1), 0);
  EXPECT_EQ(text[0], '\0');
}

TEST(Base64Encode, NegativeSizeOrLength_CountsAsNone) {
  char text[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(base64Encode("abc", -1, text, 4), 0);
  EXPECT_EQ(text[0], '\0');
  EXPECT_EQ(base64Encode("abc", INT_MIN, text, 4), 0);
  EXPECT_EQ(base64Encode("abc", 1, text, -1), -1);
}

TEST(Base64Encode, LengthNearTheLimit_DoesNotOverflow) {
  char text[8];
  EXPECT_EQ(base64Encode("abc", INT_MAX, text, 8), -1);
}

TEST(Base64Encode, InputAnywhereInTheOutput_IsMovedFirst) {
  const std::string bytes = "any carnal pleas";
  const std::string expected = encode(bytes);
  for (std::size_t offset = 0; offset + bytes.size() <= 40; ++offset) {
    char area[41];
    std::copy(bytes.begin(), bytes.end(), area + offset);
    EXPECT_EQ(base64Encode(area + offset, 16, area, 41), 24) << offset;
    EXPECT_EQ(std::string(area), expected) << offset;
  }
}

TEST(Base64Encode, InputThatBeginsBeforeTheOutput_IsMovedFirst) {
  const std::string bytes = "any carnal pleas";
  for (std::size_t shift = 1; shift <= bytes.size(); ++shift) {
    char area[64];
    std::copy(bytes.begin(), bytes.end(), area);
    EXPECT_EQ(base64Encode(area, 16, area + shift, 40), 24) << shift;
    EXPECT_EQ(std::string(area + shift), encode(bytes)) << shift;
  }
}

TEST(Base64Decode, CharactersOutsideTheAlphabet_AreSkipped) {
  EXPECT_EQ(decode("dXNlcjpwYXNz"), "user:pass");
  EXPECT_EQ(decode("dXNl cjpw\r\nYXNz"), "user:pass");
  EXPECT_EQ(decode(std::string("-_d\0XNl=cjpw.YXNz==", 19)), "user:pass");
  EXPECT_EQ(decode("Zg==Zg=="), decode("ZgZg"));
}

TEST(Base64Decode, BitsLeftOver_GiveAByteForEachEight) {
  EXPECT_EQ(decode("Z"), "");
  EXPECT_EQ(decode("Zm"), "f");
  EXPECT_EQ(decode("Zm8"), "fo");
  EXPECT_EQ(decode("Zm9vY"), "foo");
  EXPECT_EQ(decode("Zh"), "f");
}

TEST(Base64Decode, NegativeLength_RunsToTheZeroByte) {
  char bytes[16];
  EXPECT_EQ(base64Decode("Zm9v", -1, bytes, 16), 3);
  EXPECT_EQ(std::string(bytes, 3), "foo");
  EXPECT_EQ(base64Decode("Zm\0009v", -1, bytes, 16), 1);
  EXPECT_EQ(base64Decode("Zm\0009v", 5, bytes, 16), 3);
  EXPECT_EQ(base64Decode("Zm9v", 0, bytes, 16), 0);
}

TEST(Base64Decode, OutputTooSmall_Fails) {
  char bytes[3] = {'x', 'x', 'x'};
  EXPECT_EQ(base64Decode("Zm9v", 4, bytes, 2), -1);
  EXPECT_EQ(bytes[2], 'x');
  EXPECT_EQ(base64Decode("Zm9v", 4, bytes, 3), 3);
  EXPECT_EQ(base64Decode("Zm", 2, bytes, 0), -1);
  EXPECT_EQ(base64Decode("Zm", 2, bytes, -1), -1);
  EXPECT_EQ(base64Decode("==", 2, bytes, 0), 0);
}

}  // namespace
}  // namespace zorhtml
