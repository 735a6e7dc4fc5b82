#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/support/pty_pair.h"
#include "tests/unit/serial/calls.h"
#include "tests/unit/serial/open_receiver.h"

namespace {

// A device that gives `bytes` in reads of at most `piece`, then is silent.
class PortReading : public testing::Test {
 protected:
  PortReading() {
    receiver_.fd = 7;
    Calls& calls = Calls::instance();
    calls.onPoll = [this](pollfd* entries, nfds_t, int timeoutMs) {
      waits_.push_back(entries == nullptr ? -timeoutMs : timeoutMs);
      if (entries == nullptr) return 0;
      EXPECT_EQ(7, entries->fd);
      EXPECT_EQ(POLLIN, entries->events);
      entries->revents = given_ < bytes_.size() ? POLLIN : 0;
      return given_ < bytes_.size() ? 1 : 0;
    };
    calls.onRead = [this](int, void* buffer, size_t size) {
      asked_.push_back(size);
      const size_t count = std::min({size, piece_, bytes_.size() - given_});
      std::memcpy(buffer, bytes_.data() + given_, count);
      given_ += count;
      return static_cast<ssize_t>(count);
    };
  }

  int readBody(const std::string& bytes, size_t capacity = 255) {
    bytes_ = bytes;
    given_ = 0;
    asked_.clear();
    return receiver_.readRecordBody(buffer_, capacity);
  }

  CallsReset reset_;
  OpenReceiver receiver_;
  std::string bytes_;
  size_t piece_ = 1000;
  size_t given_ = 0;
  std::vector<int> waits_;  // negative: a pause without a device
  std::vector<size_t> asked_;
  unsigned char buffer_[300] = {};
};

std::string text(size_t size) { return std::string(size, 'x'); }  // NOLINT(modernize-return-braced-init-list): a count

}  // namespace

TEST_F(PortReading, Input_IsReported) {
  bytes_ = "a";
  EXPECT_EQ(1, receiver_.waitForInput(500));
  EXPECT_EQ(std::vector<int>{500}, waits_);
}

TEST_F(PortReading, Silence_GivesZero) { EXPECT_EQ(0, receiver_.waitForInput(500)); }

TEST_F(PortReading, AbortWhileBytesWait_GivesMinusTwo) {
  bytes_ = "a";
  receiver_.requestAbort();
  EXPECT_EQ(-2, receiver_.waitForInput(500));
}

TEST_F(PortReading, AbortInSilence_GivesMinusTwo) {
  receiver_.abortFlag = 0x80;  // any value but 0
  EXPECT_EQ(-2, receiver_.waitForInput(500));
}

TEST_F(PortReading, InterruptedWait_BeginsAnewWithTheFullTime) {
  int calls = 0;
  Calls::instance().onPoll = [&](pollfd* entries, nfds_t, int timeoutMs) {
    EXPECT_EQ(500, timeoutMs);
    if (++calls < 3) return errno = EINTR, -1;
    entries->revents = POLLIN;
    return 1;
  };
  EXPECT_EQ(1, receiver_.waitForInput(500));
  EXPECT_EQ(3, calls);
}

TEST_F(PortReading, FailedWait_GivesMinusThreeAlsoWhenAborted) {
  Calls::instance().onPoll = [](pollfd*, nfds_t, int) { return errno = EINVAL, -1; };
  receiver_.requestAbort();
  EXPECT_EQ(-3, receiver_.waitForInput(500));
}

TEST_F(PortReading, OtherEvents_GiveZeroAndDoNotSpin) {
  for (const short event : {short{POLLHUP}, short{POLLERR}, short{POLLNVAL}}) {
    std::vector<int> pauses;
    Calls::instance().onPoll = [&](pollfd* entries, nfds_t, int timeoutMs) {
      if (entries == nullptr) return pauses.push_back(timeoutMs), 0;
      entries->revents = event;
      return 1;
    };
    EXPECT_EQ(0, receiver_.waitForInput(500)) << event;
    EXPECT_EQ(std::vector<int>{500}, pauses) << event;
  }
}

TEST_F(PortReading, AbortWhileAnotherEventIsWaitedOut_GivesMinusTwo) {
  Calls::instance().onPoll = [this](pollfd* entries, nfds_t, int) {
    if (entries == nullptr) return receiver_.requestAbort(), 0;
    entries->revents = POLLERR;
    return 1;
  };
  EXPECT_EQ(-2, receiver_.waitForInput(500));
}

TEST_F(PortReading, InputWithHangUp_IsInput) {
  Calls::instance().onPoll = [](pollfd* entries, nfds_t, int) { return entries->revents = POLLIN | POLLHUP, 1; };
  EXPECT_EQ(1, receiver_.waitForInput(500));
}

TEST_F(PortReading, Bytes_AreReadExactlyInAnyPieces) {
  for (piece_ = 1; piece_ <= 11; ++piece_) {
    bytes_ = "0123456789rest";
    given_ = 0;
    ASSERT_EQ(10, receiver_.readBytes(buffer_, 10)) << piece_;
    EXPECT_EQ(0, std::memcmp("0123456789", buffer_, 10));
    EXPECT_EQ(10U, given_);
  }
}

TEST_F(PortReading, ASecondWithoutAByte_GivesMinusThree) {
  bytes_ = "abc";
  piece_ = 1;
  EXPECT_EQ(-3, receiver_.readBytes(buffer_, 4));
  EXPECT_EQ((std::vector<int>{1000, 1000, 1000, 1000}), waits_);
}

TEST_F(PortReading, AbortBetweenBytes_GivesMinusTwo) {
  bytes_ = "abc";
  receiver_.requestAbort();
  EXPECT_EQ(-2, receiver_.readBytes(buffer_, 3));
  EXPECT_EQ(0U, given_);
}

TEST_F(PortReading, NoBytesAsked_ReadsNothing) {
  EXPECT_EQ(0, receiver_.readBytes(buffer_, 0));
  EXPECT_TRUE(waits_.empty());
}

TEST_F(PortReading, InterruptedRead_WaitsAgain) {
  bytes_ = "ab";
  int calls = 0;
  const auto plain = Calls::instance().onRead;
  Calls::instance().onRead = [&](int fd, void* buffer, size_t size) {
    if (++calls == 1) return errno = EINTR, static_cast<ssize_t>(-1);
    return plain(fd, buffer, size);
  };
  EXPECT_EQ(2, receiver_.readBytes(buffer_, 2));
  EXPECT_EQ((std::vector<int>{1000, 1000}), waits_);
}

TEST_F(PortReading, FailedRead_GivesTheBytesSoFar) {
  bytes_ = "abc";
  piece_ = 1;
  const auto plain = Calls::instance().onRead;
  Calls::instance().onRead = [&](int fd, void* buffer, size_t size) {
    if (given_ == 2) return errno = EIO, static_cast<ssize_t>(-1);
    return plain(fd, buffer, size);
  };
  EXPECT_EQ(2, receiver_.readBytes(buffer_, 3));
}

TEST_F(PortReading, EmptyRead_IsNoError) {
  bytes_ = "ab";
  int calls = 0;
  const auto plain = Calls::instance().onRead;
  Calls::instance().onRead = [&](int fd, void* buffer, size_t size) {
    return ++calls <= 5 ? 0 : plain(fd, buffer, size);
  };
  EXPECT_EQ(2, receiver_.readBytes(buffer_, 2));
}

TEST_F(PortReading, EmptyReadsForASecond_GiveMinusThree) {
  bytes_ = "ab";
  Calls::instance().onRead = [](int, void*, size_t) { return static_cast<ssize_t>(0); };
  EXPECT_EQ(-3, receiver_.readBytes(buffer_, 2));
  int paused = 0;
  for (const int wait : waits_) paused += wait < 0 ? -wait : 0;
  EXPECT_EQ(1000, paused);
}

TEST_F(PortReading, EmptyReadsBetweenBytes_BeginTheSecondAnew) {
  bytes_ = "abc";
  piece_ = 1;
  int calls = 0;
  const auto plain = Calls::instance().onRead;
  Calls::instance().onRead = [&](int fd, void* buffer, size_t size) {
    return ++calls % 41 != 0 ? 0 : plain(fd, buffer, size);  // 800 ms ahead of each byte
  };
  EXPECT_EQ(3, receiver_.readBytes(buffer_, 3));
}

TEST_F(PortReading, RecordBody_IsReadInStepsThatNeverPassItsEnd) {
  const struct {
    std::string bytes;
    int size;
    std::vector<size_t> asked;
  } cases[] = {
      {"\x03"
       "12",
       3,
       {3}},
      {"A\x03"
       "12",
       4,
       {3, 1}},
      {"AB\x03"
       "12",
       5,
       {3, 2}},
      {"ABC\x03"
       "12",
       6,
       {3, 3}},
      {"ABCDEFG\x03"
       "12",
       10,
       {3, 3, 3, 1}},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(item.size, readBody(item.bytes + "next")) << item.bytes;
    EXPECT_EQ(item.asked, asked_) << item.bytes;
    EXPECT_EQ(item.bytes.size(), given_) << item.bytes;
    EXPECT_EQ(0, std::memcmp(item.bytes.data(), buffer_, item.bytes.size()));
  }
}

TEST_F(PortReading, CheckValueOfETX_DoesNotEndTheRecordEarly) {
  EXPECT_EQ(4, readBody("A\x03\x03\x03next"));
  EXPECT_EQ(4U, given_);
}

TEST_F(PortReading, RecordBodyOfEveryLength_EndsBehindItsCheckValueOrIsTooLong) {
  for (size_t size = 0; size <= 255; ++size) {
    const int got = readBody(text(size) + "\x03" + "12next");
    EXPECT_EQ(size <= 252 ? static_cast<int>(size) + 3 : -4, got) << size;
    EXPECT_EQ(std::min<size_t>(size + 3, 255), given_) << size;
  }
}

TEST_F(PortReading, NoETXIn255Bytes_IsTooLongAfter85Reads) {
  EXPECT_EQ(-4, readBody(text(300)));
  EXPECT_EQ(std::vector<size_t>(85, 3), asked_);
}

TEST_F(PortReading, SmallCapacity_IsNeverPassed) {
  for (size_t capacity = 0; capacity < 12; ++capacity) {
    for (size_t size = 0; size < 12; ++size) {
      std::fill(std::begin(buffer_), std::end(buffer_), 0xEE);
      const int got = readBody(text(size) + "\x03" + "12next", capacity);
      EXPECT_EQ(size + 3 <= capacity ? static_cast<int>(size) + 3 : -4, got) << capacity << ' ' << size;
      EXPECT_EQ(0xEE, buffer_[capacity]);
    }
  }
}

TEST_F(PortReading, RecordBodyCutAnywhere_GivesMinusThree) {
  const std::string whole =
      "ABCDE\x03"
      "12";
  for (size_t size = 0; size < whole.size(); ++size) EXPECT_EQ(-3, readBody(whole.substr(0, size))) << size;
}

TEST_F(PortReading, AbortInARecordBody_GivesMinusTwo) {
  receiver_.requestAbort();
  EXPECT_EQ(-2, readBody("AB\x03"
                         "12"));
}

TEST_F(PortReading, DeviceThatFailsInARecordBody_GivesMinusThree) {
  const auto plain = Calls::instance().onRead;
  for (size_t failAt = 0; failAt < 5; ++failAt) {
    piece_ = 1;
    Calls::instance().onRead = [&](int fd, void* buffer, size_t size) {
      if (given_ == failAt) return errno = EIO, static_cast<ssize_t>(-1);
      return plain(fd, buffer, size);
    };
    EXPECT_EQ(-3, readBody("AB\x03"
                           "12"))
        << failAt;
  }
}

TEST_F(PortReading, Write_GoesOnAfterShortAndInterruptedWrites) {
  std::string written;
  int calls = 0;
  Calls::instance().onWrite = [&](int, const void* data, size_t size) {
    if (++calls % 2 == 1) return errno = EINTR, static_cast<ssize_t>(-1);
    const size_t count = std::min<size_t>(size, 3);
    written.append(static_cast<const char*>(data), count);
    return static_cast<ssize_t>(count);
  };
  EXPECT_EQ(10, receiver_.writeBytes("0123456789", 10));
  Calls::instance().onWrite = nullptr;
  EXPECT_EQ("0123456789", written);
}

TEST_F(PortReading, FailedWrite_GivesTheBytesSoFar) {
  int calls = 0;
  Calls::instance().onWrite = [&](int, const void*, size_t) {
    return ++calls == 1 ? static_cast<ssize_t>(4) : (errno = EIO, static_cast<ssize_t>(-1));
  };
  const int put = receiver_.writeBytes("0123456789", 10);
  Calls::instance().onWrite = nullptr;
  EXPECT_EQ(4, put);
}
