#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "tests/support/pty_pair.h"
#include "tests/unit/serial/calls.h"
#include "tests/unit/serial/open_receiver.h"

namespace {

class PortSettings : public testing::Test {
 protected:
  PortSettings() {
    receiver_.fd = pty_.device();
    Calls::instance().recordSettings = true;
  }

  termios set(unsigned baud, int dataBits, char parity, int stopBits) {
    EXPECT_EQ(0, receiver_.setupPort(baud, dataBits, parity, stopBits));
    return Calls::instance().settings;
  }

  tcflag_t controlFlags(int dataBits, char parity, int stopBits) {
    return set(115200, dataBits, parity, stopBits).c_cflag & ~static_cast<tcflag_t>(CBAUD | CBAUDEX);
  }

  CallsReset reset_;
  PtyPair pty_;
  OpenReceiver receiver_;
};

}  // namespace

TEST_F(PortSettings, ClosedPort_GivesMinusOneAndTouchesNothing) {
  receiver_.fd = -1;
  EXPECT_EQ(-1, receiver_.setupPort(115200, 8, 'N', 1));
  EXPECT_TRUE(Calls::instance().settingCalls.empty());
}

TEST_F(PortSettings, EveryRate_HasItsConstant) {
  const struct {
    unsigned baud;
    speed_t constant;
  } rates[] = {{50, B50},           {75, B75},           {110, B110},         {134, B134},         {150, B150},
               {200, B200},         {300, B300},         {600, B600},         {1200, B1200},       {1800, B1800},
               {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},     {38400, B38400},
               {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
               {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
               {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000}};
  for (const auto& rate : rates) {
    const termios settings = set(rate.baud, 8, 'N', 1);
    EXPECT_EQ(rate.constant, cfgetispeed(&settings)) << rate.baud;
    EXPECT_EQ(rate.constant, cfgetospeed(&settings)) << rate.baud;
  }
}

TEST_F(PortSettings, UnknownRates_HangUpAndAreNoError) {
  for (const unsigned baud : {0U, 1U, 115199U, 115201U, 4294967295U}) {
    const termios settings = set(baud, 8, 'N', 1);
    EXPECT_EQ(static_cast<speed_t>(B0), cfgetospeed(&settings)) << baud;
  }
}

TEST_F(PortSettings, DataBits_OtherThanFiveToSevenMeanEight) {
  const tcflag_t base = CLOCAL | CREAD;
  EXPECT_EQ(base | CS5, controlFlags(5, 'N', 1));
  EXPECT_EQ(base | CS6, controlFlags(6, 'N', 1));
  EXPECT_EQ(base | CS7, controlFlags(7, 'N', 1));
  EXPECT_EQ(base | CS8, controlFlags(8, 'N', 1));
  EXPECT_EQ(base | CS8, controlFlags(9, 'N', 1));
  EXPECT_EQ(base | CS8, controlFlags(-5, 'N', 1));
}

TEST_F(PortSettings, Parity_KnowsUpperCaseLettersOnly) {
  const tcflag_t base = CLOCAL | CREAD | CS8;
  EXPECT_EQ(base | PARENB, controlFlags(8, 'E', 1));
  EXPECT_EQ(base | PARENB | PARODD, controlFlags(8, 'O', 1));
  for (const char parity : {'N', 'e', 'o', 'M', '\0'}) EXPECT_EQ(base, controlFlags(8, parity, 1)) << parity;
}

TEST_F(PortSettings, StopBits_OtherThanTwoMeanOne) {
  const tcflag_t base = CLOCAL | CREAD | CS8;
  EXPECT_EQ(base | CSTOPB, controlFlags(8, 'N', 2));
  for (const int stopBits : {1, 0, 3, -2}) EXPECT_EQ(base, controlFlags(8, 'N', stopBits)) << stopBits;
}

TEST_F(PortSettings, EverythingElse_IsZero) {
  const termios settings = set(115200, 8, 'N', 1);
  EXPECT_EQ(3U, settings.c_iflag);  // IGNBRK | BRKINT
  EXPECT_EQ(0U, settings.c_oflag);
  EXPECT_EQ(0U, settings.c_lflag);
  EXPECT_EQ(0U, settings.c_line);
  EXPECT_TRUE(std::all_of(std::begin(settings.c_cc), std::end(settings.c_cc), [](cc_t value) { return value == 0; }));
}

TEST_F(PortSettings, Device_IsFlushedBeforeAndAfter) {
  set(115200, 8, 'N', 1);
  EXPECT_EQ((std::vector<std::string>{"flush both", "set now", "flush both"}), Calls::instance().settingCalls);
}

TEST_F(PortSettings, DeviceThatIsNoTerminal_IsNoErrorAndIsAskedAllTheSame) {
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  receiver_.fd = ends[0];
  set(115200, 8, 'N', 1);
  EXPECT_EQ((std::vector<std::string>{"flush both", "set now", "flush both"}), Calls::instance().settingCalls);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(PortSettings, Device_HasThemAndHasLostWhatCameBefore) {
  ASSERT_TRUE(pty_.send("old"));
  set(115200, 8, 'N', 1);
  termios read{};
  ASSERT_EQ(0, tcgetattr(pty_.device(), &read));
  EXPECT_EQ(3U, read.c_iflag);
  EXPECT_EQ(0U, read.c_oflag);
  EXPECT_EQ(0U, read.c_lflag);
  EXPECT_EQ(static_cast<speed_t>(B115200), cfgetospeed(&read));
  EXPECT_EQ(static_cast<tcflag_t>(CS8 | CREAD | CLOCAL),
            read.c_cflag & (CSIZE | CREAD | CLOCAL | CSTOPB | PARENB | CRTSCTS));
  EXPECT_EQ(0, read.c_cc[VMIN]);
  EXPECT_EQ(0, read.c_cc[VTIME]);
  EXPECT_EQ(0, pty_.unread());
}
