#include "http/base64.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <random>
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

TEST(Base64, EveryByteValue_GoesBothWays) {
  std::string bytes;
  for (int value = 0; value < 256; ++value) bytes += static_cast<char>(value);
  EXPECT_EQ(decode(encode(bytes)), bytes);
  EXPECT_EQ(encode(std::string("\xff\xef\xbe\xfb", 4)),
            "/+++"
            "+w==");
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
  EXPECT_EQ(decode("-_dXNl=cjpw.YXNz=="), "user:pass");
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

// What the system's own encoder makes of `bytes`.
std::string encodeByTool(const std::string& bytes) {
  char name[] = "/tmp/jx_base64_XXXXXX";
  const int fd = mkstemp(name);
  EXPECT_GE(fd, 0);
  EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  close(fd);
  std::FILE* tool = popen(("base64 -w0 " + std::string(name)).c_str(), "r");
  std::string text(bytes.size() * 2 + 8, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), tool));
  EXPECT_EQ(pclose(tool), 0);
  std::remove(name);
  return text;
}

TEST(Base64, RandomBytes_MatchTheSystemsEncoder) {
  std::mt19937 random(2);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes in each run
  for (const std::size_t size : {1U, 2U, 3U, 57U, 1000U, 100001U}) {
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    EXPECT_TRUE(encode(bytes) == encodeByTool(bytes)) << size;
  }
}

TEST(Base64, RandomBytes_GoBothWays) {
  std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes in each run
  for (int round = 0; round < 500; ++round) {
    std::string bytes(random() % 200, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    EXPECT_EQ(decode(encode(bytes)), bytes);
  }
}

}  // namespace
}  // namespace zorhtml
