#include <gtest/gtest.h>
#include <zorplatforminfo.h>

#include <cstring>
#include <string>

#include "tests/support/platform_root.h"

namespace {

class SerialNumber : public testing::Test {
 protected:
  void SetUp() override { std::memset(buffer, '#', sizeof buffer); }
  void TearDown() override { writeTerminalJson(nullptr); }

  int get(unsigned long size = 17) { return platforminfo_get(kPlatformInfoSerialNumber, buffer, size, &length); }

  char buffer[20];
  unsigned long length = 0;
};

}  // namespace

TEST_F(SerialNumber, KnownSerial_IsWrittenWithZeroAndLength) {
  writeTerminalJson(R"({"serial":"123-456-789"})");
  EXPECT_EQ(get(), 0);
  EXPECT_STREQ(buffer, "123-456-789");
  EXPECT_EQ(length, 11U);
  EXPECT_EQ(std::string(buffer + 12, 8), "########");
}

TEST_F(SerialNumber, SerialThatFillsTheRoom_HasNoZero) {
  writeTerminalJson(R"({"serial":"12345678901234567"})");
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(std::string(buffer, 20), "12345678901234567###");
  EXPECT_EQ(length, 17U);
}

TEST_F(SerialNumber, SerialLongerThanTheRoom_FailsAndWritesNothing) {
  writeTerminalJson(R"({"serial":"123456789012345678"})");
  EXPECT_NE(get(), 0);
  EXPECT_EQ(std::string(buffer, 20), std::string(20, '#'));
  EXPECT_EQ(length, 0U);
}

TEST_F(SerialNumber, UnknownSerial_Fails) {
  EXPECT_NE(get(), 0);
  for (const char* const json : {"{}", R"({"serial":""})", R"({"serial":5})", R"({"serial":null})", "[", "", "[]"}) {
    writeTerminalJson(json);
    EXPECT_NE(get(), 0) << json;
    EXPECT_EQ(buffer[0], '#') << json;
  }
}

TEST_F(SerialNumber, OtherItemOrNoBuffer_Fails) {
  writeTerminalJson(R"({"serial":"1"})");
  EXPECT_NE(platforminfo_get(34, buffer, 17, &length), 0);
  EXPECT_NE(platforminfo_get(kPlatformInfoSerialNumber, nullptr, 17, &length), 0);
  EXPECT_NE(platforminfo_get(kPlatformInfoSerialNumber, buffer, 17, nullptr), 0);
  EXPECT_NE(get(0), 0);
}
