#include "serial/crc16.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// One bit at a time, straight from the definition.
std::uint16_t bitwise(const std::string& bytes) {
  unsigned crc = 0;
  for (const char byte : bytes) {
    for (int bit = 7; bit >= 0; --bit) {
      const unsigned in = (static_cast<unsigned char>(byte) >> static_cast<unsigned>(bit)) & 1U;
      const unsigned out = (crc >> 15U) & 1U;
      crc = (crc << 1U) & 0xFFFFU;
      if ((in ^ out) != 0) crc ^= 0x8005U;
    }
  }
  return static_cast<std::uint16_t>(crc);
}

std::uint16_t of(const std::string& bytes) { return crc16(bytes.data(), bytes.size()); }

}  // namespace

TEST(Crc16, NineDigits_GiveThePublishedCheckValue) { EXPECT_EQ(0xFEE8, of("123456789")); }

TEST(Crc16, NoBytes_GiveZero) { EXPECT_EQ(0, crc16(nullptr, 0)); }

TEST(Crc16, ZeroBytes_GiveZero) { EXPECT_EQ(0, of(std::string(1024, '\0'))); }

TEST(Crc16, RecordsOfTheProtocol_GiveTheirCheckValues) {
  EXPECT_EQ(0x57CF, of("ZOR,JXAPP,XDL,p,,,,1024,,\x03"));
  EXPECT_EQ(0x8A0C, of("C\x03"));
}

TEST(Crc16, EveryByteAlone_EqualsTheBitwiseValue) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string one(1, static_cast<char>(byte));
    EXPECT_EQ(bitwise(one), of(one)) << byte;
  }
}

TEST(Crc16, ContinuedAtEveryPlace_EqualsTheWhole) {
  std::string bytes;
  for (unsigned i = 0; i < 300; ++i) bytes += static_cast<char>((i * 37U) & 0xFFU);
  ASSERT_EQ(bitwise(bytes), of(bytes));
  for (std::size_t at = 0; at <= bytes.size(); ++at) {
    EXPECT_EQ(of(bytes), crc16(bytes.data() + at, bytes.size() - at, crc16(bytes.data(), at))) << at;
  }
}
