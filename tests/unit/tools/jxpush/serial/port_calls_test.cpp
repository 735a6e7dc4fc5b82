// What the serial port asks of its driver: ioctl and poll are wrapped, and a driver of a USB adapter is played, which a
// pseudo-terminal has not.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/serial.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/pty_pair.h"
#include "tests/unit/tools/jxpush/test_files.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/serial/port.h"

using namespace jxpush;

namespace {

using Requests = std::vector<unsigned long>;

struct Driver {
  Requests requests;       // of all ioctl calls, in order
  unsigned long lacks[2];  // what it answers with an error
  serial_struct settings;
  std::function<int(int)> onFull;       // poll for room to write, given its time-out
  std::function<int(pollfd&)> onInput;  // one poll for input, in place of the system's
  bool refusesSettings;                 // takes them, and reports a failure
  std::vector<int> flushes;             // the queues of all tcflush calls
};

Driver driver;

}  // namespace

// The linker sends the program's own calls here (--wrap); the names are its convention.
extern "C" {
int __real_ioctl(int fd, unsigned long request, ...);
int __real_tcsetattr(int fd, int actions, const termios* settings);
int __real_tcflush(int fd, int queue);
int __real_poll(pollfd* entries, nfds_t count, int timeoutMs);

int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list more;
  va_start(more, request);
  void* const data = va_arg(more, void*);
  va_end(more);
  driver.requests.push_back(request);
  for (const unsigned long lacking : driver.lacks) {
    if (request == lacking) return errno = ENOTTY, -1;
  }
  if (request == TIOCGSERIAL) return *static_cast<serial_struct*>(data) = driver.settings, 0;
  if (request == TIOCSSERIAL) return driver.settings = *static_cast<const serial_struct*>(data), 0;
  return __real_ioctl(fd, request, data);
}

int __wrap_tcsetattr(int fd, int actions, const termios* settings) {
  const int result = __real_tcsetattr(fd, actions, settings);
  return std::exchange(driver.refusesSettings, false) ? (errno = EINVAL, -1) : result;
}

int __wrap_tcflush(int fd, int queue) {
  driver.flushes.push_back(queue);
  return __real_tcflush(fd, queue);
}

int __wrap_poll(pollfd* entries, nfds_t count, int timeoutMs) {
  if (entries[0].events == POLLOUT && driver.onFull) return driver.onFull(timeoutMs);
  if (entries[0].events == POLLIN && driver.onInput) return std::exchange(driver.onInput, nullptr)(entries[0]);
  return __real_poll(entries, count, timeoutMs);
}
}

namespace {

constexpr int kLowLatency = static_cast<int>(ASYNC_LOW_LATENCY);
constexpr int kOtherFlag = static_cast<int>(ASYNC_SKIP_TEST);
constexpr int kBaudBase = 460800;

class SerialPortCalls : public testing::Test {
 protected:
  SerialPortCalls() {
    driver = Driver{};
    driver.settings.flags = kOtherFlag;
    driver.settings.baud_base = kBaudBase;
  }
  ~SerialPortCalls() override { driver = Driver{}; }

  // A test's own calls do not count.
  static Requests made() { return std::exchange(driver.requests, {}); }

  // Puts in the place of `fd` a file that has no bytes yet; whoever might write to it stays until the program ends.
  static void putNothingIn(int fd) {
    int empty[2];
    ASSERT_EQ(0, pipe2(empty, O_CLOEXEC | O_NONBLOCK));
    dup2(empty[0], fd);
    close(empty[0]);
  }

  PtyPair line_;
};

}  // namespace

TEST_F(SerialPortCalls, OpenPort_IsExclusiveUntilItIsClosed) {
  driver.lacks[0] = TIOCGSERIAL;
  made();
  {
    const SerialPort port(line_.path(), -1);
    EXPECT_EQ((Requests{TIOCEXCL, TIOCGSERIAL}), made());
  }
  EXPECT_EQ(Requests{TIOCNXCL}, made());
}

TEST_F(SerialPortCalls, PortThatCannotBeExclusive_IsNotOpened) {
  driver.lacks[0] = TIOCEXCL;
  EXPECT_THROW(SerialPort(line_.path(), -1), Problem);
}

TEST_F(SerialPortCalls, PortThatAnotherHasLocked_IsAskedForNothing) {
  ASSERT_EQ(0, flock(line_.device(), LOCK_EX));
  made();
  EXPECT_THROW(SerialPort(line_.path(), -1), Problem);
  EXPECT_EQ(Requests{}, made());
}

TEST_F(SerialPortCalls, PortThatCannotBeSet_IsGivenBackAsItWas) {
  termios before{};
  ASSERT_EQ(0, tcgetattr(line_.device(), &before));
  driver.refusesSettings = true;
  made();
  try {
    const SerialPort port(line_.path(), -1);
    ADD_FAILURE() << "opened";
  } catch (const Problem& problem) {
    EXPECT_EQ(ExitCode::kNoPort, problem.code());
    EXPECT_EQ(line_.path() + ": cannot be set to 115200 baud (Invalid argument)", problem.what());
  }
  EXPECT_EQ((Requests{TIOCEXCL, TIOCNXCL}), made());
  EXPECT_EQ(0, flock(line_.device(), LOCK_EX | LOCK_NB));
  termios after{};
  ASSERT_EQ(0, tcgetattr(line_.device(), &after));
  EXPECT_EQ(before.c_iflag, after.c_iflag);
  EXPECT_EQ(before.c_cflag, after.c_cflag);
}

TEST_F(SerialPortCalls, LineThatTakesNoBytes_IsOfferedOneWithoutAWait) {
  SerialPort port(line_.path(), -1);
  const std::string much(1 << 16, 'x');  // more than the system keeps for a reader
  const int other = dup(line_.device());
  ASSERT_EQ(0, fcntl(other, F_SETFL, O_NONBLOCK));
  for (int read = 0; read < 4095;
       ioctl(line_.master(), FIONREAD, &read)) {  // the kernel's thread has filled its reader's end
    while (write(other, much.data(), much.size()) > 0) {
    }
  }
  while (write(other, much.data(), much.size()) > 0) {
  }
  driver.onFull = [](int) { return ADD_FAILURE() << "a wait", 1; };
  port.offer('a');
  EXPECT_EQ(-1, port.readByte(0));
  std::string taken;
  while (!(taken = line_.receive(1 << 16, 0)).empty()) EXPECT_EQ(std::string::npos, taken.find('a'));
  port.offer('b');
  EXPECT_EQ("b", line_.receive(1));
  close(other);
}

TEST_F(SerialPortCalls, ReadingsOfAnyLength_GiveTheirOwnBytes) {
  SerialPort port(line_.path(), -1);
  for (const std::string bytes : {"abc", "de", "fghi"}) {
    ASSERT_TRUE(line_.send(bytes));
    for (const char byte : bytes) EXPECT_EQ(byte, port.readByte(20000));
  }
}

TEST_F(SerialPortCalls, WaitThatIsInterrupted_IsTakenUpAgain) {
  SerialPort port(line_.path(), -1);
  driver.onInput = [](pollfd& /*entry*/) { return errno = EINTR, -1; };
  EXPECT_EQ(-1, port.readByte(0));
  ASSERT_TRUE(line_.send("x"));
  EXPECT_EQ('x', port.readByte(20000));
}

TEST_F(SerialPortCalls, InputThatIsGoneWhenItIsRead_IsNone) {
  SerialPort port(line_.path(), -1);
  driver.onInput = [](pollfd& entry) {
    putNothingIn(entry.fd);
    return entry.revents = POLLIN, 1;
  };
  EXPECT_EQ(-1, port.readByte(0));
}

TEST_F(SerialPortCalls, LineThatFailsInAnyWay_IsLost) {
  const auto refuseWait = [](pollfd& /*entry*/) { return errno = EIO, -1; };
  const auto tellAnError = [](pollfd& entry) {
    putNothingIn(entry.fd);
    return entry.revents = POLLERR, 1;
  };
  const auto refuseReading = [](pollfd& entry) {
    const int folder = open("/", O_RDONLY | O_CLOEXEC);
    dup2(folder, entry.fd);
    close(folder);
    return entry.revents = POLLIN, 1;
  };
  const std::vector<std::pair<std::function<int(pollfd&)>, std::string>> failures = {
      {refuseWait, "Input/output error"}, {tellAnError, "the line was hung up"}, {refuseReading, "Is a directory"}};
  for (const auto& [failure, why] : failures) {
    SerialPort port(line_.path(), -1);
    driver.onInput = failure;
    try {
      port.readByte(0);
      ADD_FAILURE() << why;
    } catch (const Problem& problem) {
      EXPECT_EQ(ExitCode::kGaveUp, problem.code());
      EXPECT_NE(std::string::npos, std::string(problem.what()).find(why)) << problem.what();
    }
    line_.release();  // which a port whose line was taken away could not do; root alone would not mind
  }
}

TEST_F(SerialPortCalls, ClosedPort_DropsWhatTheLineHasNotTaken) {
  {
    const SerialPort port(line_.path(), -1);
    EXPECT_EQ(std::vector<int>{TCIOFLUSH}, std::exchange(driver.flushes, {}));
  }
  EXPECT_EQ(std::vector<int>{TCOFLUSH}, driver.flushes);
}

TEST_F(SerialPortCalls, LowLatency_IsAskedForAndTakenBack) {
  made();
  {
    const SerialPort port(line_.path(), -1);
    EXPECT_EQ(kOtherFlag | kLowLatency, driver.settings.flags);
    EXPECT_EQ(kBaudBase, driver.settings.baud_base);
    // Nothing here moves a modem line.
    EXPECT_EQ((Requests{TIOCEXCL, TIOCGSERIAL, TIOCSSERIAL}), made());
  }
  EXPECT_EQ(kOtherFlag, driver.settings.flags);
  EXPECT_EQ(kBaudBase, driver.settings.baud_base);
  EXPECT_EQ((Requests{TIOCGSERIAL, TIOCSSERIAL, TIOCNXCL}), made());
}

TEST_F(SerialPortCalls, LowLatencyThatWasThere_Stays) {
  driver.settings.flags |= kLowLatency;
  made();
  { const SerialPort port(line_.path(), -1); }
  EXPECT_EQ(kOtherFlag | kLowLatency, driver.settings.flags);
  EXPECT_EQ((Requests{TIOCEXCL, TIOCGSERIAL, TIOCNXCL}), made());
}

TEST_F(SerialPortCalls, DriverWithoutLowLatency_IsUsedAsItIs) {
  driver.lacks[0] = TIOCSSERIAL;
  made();
  {
    SerialPort port(line_.path(), -1);
    port.write("x", 1);
    EXPECT_EQ("x", line_.receive(1));
    made();
  }
  EXPECT_EQ(Requests{TIOCNXCL}, made());  // there is nothing to put back
}

TEST_F(SerialPortCalls, SendingAndReceiving_AsksForNothing) {
  SerialPort port(line_.path(), -1);
  ASSERT_TRUE(line_.send("answer"));
  made();
  port.write("record", 6);
  EXPECT_EQ('a', port.readByte(20000));
  port.ignoreInterrupts();
  EXPECT_EQ(Requests{}, made());
}

TEST_F(SerialPortCalls, LineThatTakesNoBytesForFiveSeconds_IsAProblem) {
  SerialPort port(line_.path(), -1);
  std::vector<int> waits;
  driver.onFull = [&waits](int timeoutMs) {
    if (!waits.empty()) {
      std::fputs("the port waits again for a line that took nothing\n", stderr);
      std::abort();
    }
    waits.push_back(timeoutMs);
    return 0;
  };
  const std::string much(1 << 20, 'x');  // more than the system keeps for a reader
  try {
    port.write(much.data(), much.size());
    ADD_FAILURE() << "taken";
  } catch (const Problem& problem) {
    EXPECT_EQ(ExitCode::kGaveUp, problem.code());
    EXPECT_EQ(line_.path() + ": the line takes no bytes", problem.what());
  }
  EXPECT_EQ(std::vector<int>{5000}, waits);
}

TEST_F(SerialPortCalls, LineThatTakesBytesLate_GetsAllOfThem) {
  SerialPort port(line_.path(), -1);
  const std::string much = mixedBytes(300000);
  std::string taken;
  driver.onFull = [&](int) {
    taken += line_.receive(1024);
    return 1;
  };
  port.write(much.data(), much.size());
  EXPECT_LT(0U, taken.size());
  taken += line_.receive(much.size() - taken.size());
  EXPECT_TRUE(taken == much);
}
