#include "tools/jxpush/serial/port.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>

#include "tests/support/pty_pair.h"
#include "tools/jxpush/common/problem.h"

using namespace jxpush;

namespace {

// The code and message of opening `device`.
std::pair<ExitCode, std::string> opening(const std::string& device) {
  try {
    const SerialPort port(device, -1);
    return {ExitCode::kSent, ""};
  } catch (const Problem& problem) {
    return {problem.code(), problem.what()};
  }
}

termios settingsOf(const PtyPair& line) {
  termios settings{};
  EXPECT_EQ(0, tcgetattr(line.device(), &settings));
  return settings;
}

}  // namespace

TEST(SerialPort, OpenPort_IsRawAt115200WithoutFlowControl) {
  const PtyPair line;
  const SerialPort port(line.path(), -1);
  const termios settings = settingsOf(line);
  EXPECT_EQ(static_cast<speed_t>(B115200), cfgetospeed(&settings));
  EXPECT_EQ(static_cast<speed_t>(B115200), cfgetispeed(&settings));
  EXPECT_EQ(static_cast<tcflag_t>(CS8 | CLOCAL | CREAD),
            settings.c_cflag & (CSIZE | CLOCAL | CREAD | CSTOPB | PARENB | CRTSCTS));
  EXPECT_EQ(static_cast<tcflag_t>(IGNBRK), settings.c_iflag);
  EXPECT_EQ(0U, settings.c_oflag);
  EXPECT_EQ(0U, settings.c_lflag);
}

TEST(SerialPort, ClosedPort_HasItsSettingsBack) {
  const PtyPair line;
  termios before = settingsOf(line);
  before.c_lflag = ECHO | ICANON | ISIG;
  before.c_iflag = ICRNL | IXON;
  before.c_cc[VMIN] = 7;
  cfsetispeed(&before, B9600);
  cfsetospeed(&before, B9600);
  ASSERT_EQ(0, tcsetattr(line.device(), TCSANOW, &before));
  before = settingsOf(line);
  { const SerialPort port(line.path(), -1); }
  const termios after = settingsOf(line);
  EXPECT_EQ(before.c_iflag, after.c_iflag);
  EXPECT_EQ(before.c_oflag, after.c_oflag);
  EXPECT_EQ(before.c_cflag, after.c_cflag);
  EXPECT_EQ(before.c_lflag, after.c_lflag);
  EXPECT_TRUE(std::equal(std::begin(before.c_cc), std::end(before.c_cc), std::begin(after.c_cc)));
}

TEST(SerialPort, HangUpOnClose_StaysAsItWasMeanwhile) {
  const PtyPair line;
  for (const tcflag_t flag : {tcflag_t{0}, tcflag_t{HUPCL}}) {
    termios settings = settingsOf(line);
    settings.c_cflag = (settings.c_cflag & ~static_cast<tcflag_t>(HUPCL)) | flag;
    ASSERT_EQ(0, tcsetattr(line.device(), TCSANOW, &settings));
    const SerialPort port(line.path(), -1);
    EXPECT_EQ(flag, settingsOf(line).c_cflag & HUPCL);
  }
}

TEST(SerialPort, SecondOpening_IsBusy) {
  const PtyPair line;
  const SerialPort port(line.path(), -1);
  const auto [code, message] = opening(line.path());
  EXPECT_EQ(ExitCode::kBusy, code);
  EXPECT_EQ(0U, message.find(line.path() + ": busy")) << message;
}

TEST(SerialPort, PortThatAnotherHasLocked_IsBusyAndStaysAsItWas) {
  const PtyPair line;
  ASSERT_EQ(0, flock(line.device(), LOCK_EX));
  const termios before = settingsOf(line);
  EXPECT_EQ(ExitCode::kBusy, opening(line.path()).first);
  EXPECT_EQ(before.c_iflag, settingsOf(line).c_iflag);
  EXPECT_EQ(before.c_cflag, settingsOf(line).c_cflag);
  flock(line.device(), LOCK_UN);
  EXPECT_EQ(ExitCode::kSent, opening(line.path()).first);
}

TEST(SerialPort, WhatIsNoSerialPort_IsNoPort) {
  EXPECT_EQ(ExitCode::kNoPort, opening("/nonexistent/tty").first);
  EXPECT_EQ("/nonexistent/tty: no such port (No such file or directory)", opening("/nonexistent/tty").second);
  EXPECT_EQ("/dev/null: not a serial port", opening("/dev/null").second);
  EXPECT_EQ(ExitCode::kNoPort, opening("/tmp").first);
  EXPECT_THROW(SerialPort::check("/tmp"), Problem);
  EXPECT_THROW(SerialPort::check("/nonexistent/tty"), Problem);
}

TEST(SerialPort, Bytes_PassBothWaysUnchanged) {
  const PtyPair line;
  SerialPort port(line.path(), -1);
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  port.write(all.data(), all.size());
  EXPECT_EQ(all, line.receive(256));
  ASSERT_TRUE(line.send(all));
  for (int byte = 0; byte < 256; ++byte) EXPECT_EQ(byte, port.readByte(20000));
  EXPECT_EQ(-1, port.readByte(0));
  EXPECT_EQ(-1, port.readByte(20));
}

TEST(SerialPort, HangUp_IsAProblem) {
  PtyPair line;
  SerialPort port(line.path(), -1);
  line.hangUp();
  EXPECT_THROW(port.readByte(20000), Problem);
  EXPECT_THROW(port.write("x", 1), Problem);
}

TEST(SerialPort, Interrupt_EndsAWaitUntilItIsIgnored) {
  int stop[2];
  ASSERT_EQ(0, pipe(stop));
  const PtyPair line;
  SerialPort port(line.path(), stop[0]);
  ASSERT_EQ(1, write(stop[1], "x", 1));
  EXPECT_THROW(port.readByte(20000), Interrupted);
  port.ignoreInterrupts();
  EXPECT_EQ(-1, port.readByte(10));
  close(stop[0]);
  close(stop[1]);
}
