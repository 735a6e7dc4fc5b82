// How a download uses its line: as it opens and sets it, and in which pieces it waits and writes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

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

const std::string kSession = openRecord("hello.zip") + dataRecord(0, "first ") + textRecord('M', "half") +
                             dataRecord(6, "second") + signalRecord('C') + "\x04";
const std::vector<std::string> kSessionCalls = {"open hello.zip", "write 0 6", "M half", "write 6 6", "close"};

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

TEST(LineUse, WholeSession_CallsTheSystemInOrderAndEndsWithEOT) {
  Download download;
  EXPECT_EQ("\x06\x06\x06\x06\x06\x04", download.exchange(kSession, 6));
  EXPECT_EQ(0, download.result());
  EXPECT_EQ(kSessionCalls, download.system.calls());
  EXPECT_EQ("first second", download.system.content());
  EXPECT_EQ(-1, download.receiver.fd);
}

TEST(LineUse, SessionByteByByte_EndsTheSame) {
  Download download;
  for (const char byte : kSession) {
    download.feed(std::string(1, byte));
  }
  EXPECT_EQ("\x06\x06\x06\x06\x06\x04", download.line.receive(6));
  EXPECT_EQ(0, download.result());
  EXPECT_EQ(kSessionCalls, download.system.calls());
}

TEST(LineUse, SessionSplitAtEveryPlace_EndsTheSame) {
  for (std::size_t at = 1; at < kSession.size(); ++at) {
    Download download;
    download.feed(kSession.substr(0, at));
    ASSERT_TRUE(download.line.send(kSession.substr(at)));
    EXPECT_EQ("\x06\x06\x06\x06\x06\x04", download.line.receive(6)) << at;
    EXPECT_EQ(0, download.result()) << at;
    EXPECT_EQ(kSessionCalls, download.system.calls()) << at;
  }
}

TEST(LineUse, DeviceThatCannotBeOpened_GivesMinusOneAndChangesNothing) {
  OpenReceiver receiver;
  receiver.requestAbort();
  EXPECT_EQ(-1, receiver.receive("/nonexistent/device"));
  EXPECT_EQ(-1, receiver.fd);
  EXPECT_EQ(1, receiver.abortFlag);
}

TEST(LineUse, DescriptorZero_IsAsGoodAsAnother) {
  const CallsReset reset;
  const int standardInput = dup(0);
  const auto testThread = std::this_thread::get_id();
  Calls::instance().onOpen = [testThread](const std::string& path) {
    if (std::this_thread::get_id() != testThread) close(0);  // what is opened now gets it
    return path;
  };
  Download download;
  EXPECT_EQ(download.line.path(), std::filesystem::read_symlink("/proc/self/fd/0"));
  EXPECT_EQ("\x04", download.exchange("\x04"));
  EXPECT_EQ(0, download.result());
  dup2(standardInput, 0);
  close(standardInput);
}

TEST(LineUse, SecondDownload_BeginsAnew) {
  Download first;
  first.exchange("\x02X\x02X", 2);
  first.receiver.requestAbort();
  EXPECT_EQ(-2, first.result());
  // The abort and the failed records of the first are forgotten.
  std::thread second;
  untilReady([&] {
    second = std::thread([&] {
      Calls::thisThreadReceives();
      EXPECT_EQ(-3, first.receiver.receive(first.line.path().c_str()));
    });
  });
  EXPECT_EQ("\x15\x15\x04", first.exchange("\x02X\x02X\x02X", 3));
  second.join();
}
