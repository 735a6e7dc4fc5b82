// Silence, aborts, hang-ups and failures in each state of a download.
#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <future>
#include <stdexcept>

#include "tests/unit/serial/calls.h"
#include "tests/unit/serial/download.h"

namespace {

class Faults : public testing::Test {
 protected:
  Faults() { Calls::instance().timeDivisor = 20; }
  CallsReset reset_;
};

}  // namespace

TEST_F(Faults, SilenceInARecord_CountsAsFailedAndThreeEndIt) {
  Download download;
  EXPECT_EQ("\x15", download.exchange("\x02M"));
  EXPECT_EQ("\x15", download.exchange("\x02S\x03"));
  EXPECT_EQ("\x04", download.exchange(bytes("\x02W\0\4\0\0\0\0ab")));
  EXPECT_EQ(-3, download.result());
  EXPECT_EQ(std::vector<std::string>{}, download.system.calls());
}

TEST_F(Faults, SilenceBehindSTX_EndsWithMinusThreeWithoutAReply) {
  Download download;
  download.line.send("\x02");
  EXPECT_EQ(-3, download.result());
  EXPECT_EQ("", download.line.pending());
}

TEST_F(Faults, SilenceBetweenRecords_HasNoLimit) {
  Download download;
  int waits = 0;
  // Four times the idle wait.
  while (waits < 4) {
    EXPECT_EQ("", download.line.receive(1, 30));
    ++waits;
  }
  EXPECT_EQ("\x06", download.exchange(signalRecord('S')));
}

TEST_F(Faults, AbortInTheIdleWait_EndsWithMinusTwoWithoutAReply) {
  Download download;
  download.receiver.requestAbort();
  EXPECT_EQ(-2, download.result());
  EXPECT_EQ("", download.line.pending());
}

TEST_F(Faults, AbortInARecord_EndsWithMinusTwoAndEOT) {
  Calls::instance().timeFactor = kFar;  // the byte's second must not be over before the abort
  for (const State& state : kStates) {
    Download download;
    download.feed(state.bytes);
    download.receiver.requestAbort();
    download.line.send("~");  // not to wait out the second
    EXPECT_EQ(-2, download.result()) << state.name;
    EXPECT_EQ("\x04", download.line.pending()) << state.name;
  }
}

TEST_F(Faults, AbortInACallback_IsNoticedInTheNextWait) {
  Download download;
  download.system.onCall([&] { download.receiver.requestAbort(); });
  EXPECT_EQ("\x06", download.exchange(textRecord('M', "a")));
  EXPECT_EQ(-2, download.result());
}

TEST_F(Faults, AbortWhileRecordsCome_EndsTheDownload) {
  for (int record = 1; record < 6; ++record) {
    Download download;
    std::promise<void> reached;
    int calls = 0;
    download.system.onCall([&] {
      if (++calls == record) reached.set_value();
    });
    std::thread presser([&] {
      reached.get_future().wait();
      download.receiver.requestAbort();
    });
    do {
      download.line.send(dataRecord(0, "abcdefgh"));
    } while (download.line.receive(1, 100) == "\x06");
    presser.join();
    const int result = download.result();
    EXPECT_TRUE(result == -2 || result == -3) << result;
    EXPECT_EQ(-1, download.receiver.fd);
  }
}

TEST_F(Faults, HangUpInEachState_EndsWithMinusThreeAndClosesTheDevice) {
  for (const State& state : kStates) {
    Download download;
    download.feed(state.bytes);
    download.line.hangUp();
    EXPECT_EQ(-3, download.result()) << state.name;
    EXPECT_EQ(-1, download.receiver.fd) << state.name;
  }
}

TEST_F(Faults, HangUpBetweenRecords_EndsWithMinusThree) {
  Download download;
  download.line.hangUp();
  EXPECT_EQ(-3, download.result());
  EXPECT_EQ(-1, download.receiver.fd);
}

TEST_F(Faults, ReplyThatCannotBeWritten_EndsWithMinusThree) {
  const struct {
    const char* name;
    std::string bytes;
    int failingWrite;
  } cases[] = {{"ACK", signalRecord('S'), 1},
               {"NAK", damaged(signalRecord('S')), 1},
               {"parameters", "\x05", 1},
               {"their check value", "\x05", 2}};
  const auto testThread = std::this_thread::get_id();
  for (const auto& item : cases) {
    std::atomic<int> writes{0};
    Calls::instance().onWrite = [&](int fd, const void* data, size_t size) -> ssize_t {
      if (std::this_thread::get_id() == testThread || ++writes < item.failingWrite) {
        return syscall(SYS_write, fd, data, size);
      }
      return errno = EIO, -1;
    };
    Download download;
    ASSERT_TRUE(download.line.send(item.bytes));
    EXPECT_EQ(-3, download.result()) << item.name;
    EXPECT_EQ(-1, download.receiver.fd) << item.name;
    EXPECT_EQ(item.failingWrite, writes) << item.name;  // nothing more is tried
  }
}

TEST_F(Faults, EOTThatCannotBeWritten_LeavesTheResultAsItIs) {
  Calls::instance().timeFactor = kFar;  // the byte's second must not be over before an abort
  const struct {
    const char* name;
    std::string sent;
    int result;
  } cases[] = {{"end", "\x04", 0},
               {"abort", "\x02M", -2},
               {"refusal", textRecord('M', "a"), -5},
               {"text too long", textRecord('R', std::string(253, 'x')), -4},
               {"data too long", bytes("\x02W\x04\x01\0\0\0\0"), -4}};
  const auto testThread = std::this_thread::get_id();
  for (const auto& item : cases) {
    std::string refused;  // what the receiver tried to write
    Calls::instance().onWrite = [&](int fd, const void* data, size_t size) -> ssize_t {
      if (std::this_thread::get_id() == testThread) return syscall(SYS_write, fd, data, size);
      refused.append(static_cast<const char*>(data), size);
      return errno = EIO, -1;
    };
    Download download("M");
    if (item.result == -2) {
      download.feed(item.sent);
      download.receiver.requestAbort();
      download.line.send("~");  // not to wait out the second
    } else {
      ASSERT_TRUE(download.line.send(item.sent)) << item.name;
    }
    EXPECT_EQ(item.result, download.result()) << item.name;
    EXPECT_EQ("\x04", refused) << item.name;
    EXPECT_EQ(-1, download.receiver.fd) << item.name;
  }
}

TEST_F(Faults, WaitThatFails_EndsWithMinusThreeWithoutAReply) {
  std::atomic<bool> broken{false};
  Calls::instance().onPoll = [&](pollfd* entries, nfds_t count, int timeoutMs) {
    if (broken) return errno = ENOMEM, -1;
    const timespec wait{0, timeoutMs * 1000000L / 20};
    return ppoll(entries, count, &wait, nullptr);
  };
  Download download;
  broken = true;
  EXPECT_EQ(-3, download.result());
  EXPECT_EQ("", download.line.pending());
}

TEST_F(Faults, ExceptionOutOfACallback_ClosesTheDeviceAndPassesOn) {
  Download download;
  const int before = openFiles();
  download.system.onCall([] { throw std::runtime_error("no memory"); });
  ASSERT_TRUE(download.line.send(textRecord('M', "a")));
  EXPECT_EQ(99, download.result());
  EXPECT_EQ(-1, download.receiver.fd);
  EXPECT_EQ(before - 1, openFiles());
}

TEST_F(Faults, NoiseBeforeTheFirstRecord_IsFlushedOrIgnored) {
  Download download;
  EXPECT_EQ("\x06", download.exchange(bytes("\xFF\0\x03\x06~~noise") + signalRecord('S')));
}
