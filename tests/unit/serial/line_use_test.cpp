// How a download uses its line: as it opens and sets it, and in which pieces it waits and writes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include "tests/unit/serial/calls.h"
#include "tests/unit/serial/download.h"

namespace {

// What the receiving thread asked of the line. Read it when the download has ended.
class LineCalls {
 public:
  LineCalls() {
    Calls::instance().recordSettings = true;
    Calls::instance().onWrite = [this](int fd, const void* data, size_t size) -> ssize_t {
      if (std::this_thread::get_id() != testThread_) writeSizes.push_back(size);
      return syscall(SYS_write, fd, data, size);
    };
    Calls::instance().onPoll = [this](pollfd* entries, nfds_t count, int timeoutMs) {
      if (std::this_thread::get_id() != testThread_) waitsMs.push_back(timeoutMs);
      const timespec wait{timeoutMs / 1000, timeoutMs % 1000 * 1000000L};
      return ppoll(entries, count, timeoutMs < 0 ? nullptr : &wait, nullptr);
    };
  }

  std::vector<std::size_t> writeSizes;
  std::vector<int> waitsMs;

 private:
  CallsReset reset_;
  std::thread::id testThread_ = std::this_thread::get_id();
};

}  // namespace

TEST(LineUse, ParameterRecord_IsWrittenIn27And2BytesAndRepliesInOne) {
  LineCalls calls;
  Download download;
  EXPECT_EQ(kParameterRecord, download.exchange("\x05", 29));
  EXPECT_EQ("\x06", download.exchange(signalRecord('S')));
  EXPECT_EQ("\x15", download.exchange("\x02X"));
  EXPECT_EQ("\x04", download.exchange("\x04"));
  EXPECT_EQ(0, download.result());
  EXPECT_EQ((std::vector<std::size_t>{27, 2, 1, 1, 1}), calls.writeSizes);
}

TEST(LineUse, Line_IsOpenedForReadingAndWritingWithoutFurtherFlags) {
  const CallsReset reset;
  Download download;
  EXPECT_EQ("\x04", download.exchange("\x04"));
  EXPECT_EQ(0, download.result());
  EXPECT_EQ(std::vector<int>{O_RDWR}, Calls::instance().openFlags);
}

TEST(LineUse, Line_IsSetTo115200BaudEightBitsNoParityOneStopBit) {
  const LineCalls calls;
  Download download;
  EXPECT_EQ("\x04", download.exchange("\x04"));
  EXPECT_EQ(0, download.result());
  // The first is the pseudo-terminal's own, before anyone opens it.
  EXPECT_EQ((std::vector<std::string>{"set now", "flush both", "set now", "flush both"}),
            Calls::instance().settingCalls);
  const termios& settings = Calls::instance().settings;
  EXPECT_EQ(static_cast<speed_t>(B115200), cfgetispeed(&settings));
  EXPECT_EQ(static_cast<speed_t>(B115200), cfgetospeed(&settings));
  EXPECT_EQ(static_cast<tcflag_t>(CLOCAL | CREAD | CS8), settings.c_cflag & ~static_cast<tcflag_t>(CBAUD | CBAUDEX));
  EXPECT_EQ(3U, settings.c_iflag);
}

TEST(LineUse, LineThatRefusesItsSettings_ServesAllTheSame) {
  const CallsReset reset;
  Calls::instance().refuseSettings = true;
  Download download;
  EXPECT_EQ(kParameterRecord, download.exchange("\x05", 29));
  EXPECT_EQ("\x06", download.exchange(signalRecord('S')));
  ASSERT_EQ("\x04", download.exchange("\x04"));
  EXPECT_EQ(0, download.result());
}

TEST(LineUse, Waits_AreHalfASecondBetweenRecordsAndASecondWithin) {
  LineCalls calls;
  Download download;
  EXPECT_EQ("\x06", download.exchange(signalRecord('S')));
  EXPECT_EQ("\x04", download.exchange("\x04"));
  EXPECT_EQ(0, download.result());
  // However often it waited: between records, within the one, between, for the last byte.
  calls.waitsMs.erase(std::unique(calls.waitsMs.begin(), calls.waitsMs.end()), calls.waitsMs.end());
  EXPECT_EQ((std::vector<int>{500, 1000, 500, 1000}), calls.waitsMs);
}
