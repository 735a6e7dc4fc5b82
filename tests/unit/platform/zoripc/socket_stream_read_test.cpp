#include <malloc.h>
#include <sys/socket.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/platform/zoripc/driven_time.h"
#include "tests/unit/platform/zoripc/failing_calls.h"
#include "tests/unit/platform/zoripc/sockets.h"

using zoripc::ReadAhead;
using zoripc::SocketStream;

namespace {

// Pages of this process that are in memory.
long residentPages() {
  std::ifstream file("/proc/self/statm");
  long total = -1;
  long resident = -1;
  file >> total >> resident;
  return resident;
}

// On a clock that only the reads set forward. What a read gives is the same wherever it waits.
class ReadTest : public testing::TestWithParam<Waits> {
 protected:
  explicit ReadTest(int type = SOCK_STREAM) : pair_(localPair(type)) {
    if (GetParam() == Waits::InReads) stream_.waitInReads();
  }
  void TearDown() override { far_.close(); }  // the stream's end waits for its peer's

  std::string read(std::size_t size, int timeoutMs) {
    std::string text(size, '\0');
    text.resize(stream_.read(text.data(), size, timeoutMs));
    return text;
  }

  std::string readExact(std::size_t size, int timeoutMs, int gapMs = -1) {
    std::string text(size, '\0');
    return stream_.readExact(text.data(), size, timeoutMs, gapMs) ? text : "failed";
  }

  void sendAt(long long ms, const std::string& bytes) {
    time_.at(ms, [this, bytes] { EXPECT_TRUE(far_.send(bytes)); });
  }

  // A time-out is none of both ends.
  void expectOpen() const {
    EXPECT_FALSE(stream_.closed());
    EXPECT_FALSE(stream_.failed());
  }

  driven::Time time_;
  RawPair pair_;
  RawSocket& far_ = pair_.far;
  SocketStream stream_{base::Descriptor(pair_.near.release())};
};

// Each receive gets a byte and takes 100 milliseconds, though more is there: what a peer does that is always ahead.
class DripTest : public ReadTest {
 protected:
  DripTest() : ReadTest(SOCK_SEQPACKET) {
    for (int i = 0; i < 10; ++i) far_.send("x");
  }

  failing::Calls calls_{"recv", std::vector<int>(10, 0), [this] { time_.pass(100); }};
};

class WaitingReadTest : public ReadTest {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Read, ReadTest, kBothWaits, nameOfWaits);
INSTANTIATE_TEST_SUITE_P(Read, DripTest, kBothWaits, nameOfWaits);
INSTANTIATE_TEST_SUITE_P(Read, WaitingReadTest, testing::Values(Waits::InReads));

TEST_P(ReadTest, OneByteRead_TakesAllThatIsThereAhead) {
  far_.send("hello");
  EXPECT_EQ(readExact(1, 0), "h");
  int waiting = -1;
  ioctl(stream_.fd(), FIONREAD, &waiting);
  EXPECT_EQ(waiting, 0);
  EXPECT_EQ(readExact(4, 0), "ello");
}

TEST_P(ReadTest, EverySize_GivesTheSameBytes) {
  const std::string sent = pattern(300000);
  for (const std::size_t step : {1U, 7U, 2047U, 2048U, 2049U, 4096U, 131071U, 131072U, 200000U}) {
    std::size_t at = 0;
    std::string got;
    while (got.size() < sent.size()) {
      at += far_.sendSome(sent.substr(at));
      const std::size_t size = std::min<std::size_t>(step, sent.size() - got.size());
      got += read(size, 0);
    }
    EXPECT_EQ(got, sent) << step;
  }
}

TEST_P(ReadTest, SizeZero_SucceedsAtOnce) {
  EXPECT_TRUE(stream_.readExact(nullptr, 0, -1, -1));
  EXPECT_EQ(stream_.read(nullptr, 0, -1), 0U);
}

TEST_P(ReadTest, TimeoutZero_TakesOnlyWhatIsThere) {
  EXPECT_EQ(read(4, 0), "");
  far_.send("ab");
  EXPECT_EQ(read(4, 0), "ab");
  EXPECT_EQ(readExact(1, 0, 0), "failed");
  const std::string large = pattern(50000);
  far_.send(large);
  EXPECT_EQ(read(60000, 0), large);
  EXPECT_EQ(time_.now(), 0);
  expectOpen();
}

TEST_P(ReadTest, Timeout_LosesTheBytesOfAnExactReadAndIsNoEnd) {
  far_.send("ab");
  sendAt(999, "c");
  EXPECT_EQ(readExact(4, 1000), "failed");
  EXPECT_EQ(time_.now(), 1000);
  expectOpen();
  far_.send("xyz");
  EXPECT_EQ(readExact(3, 0), "xyz");
}

TEST_P(ReadTest, Timeout_KeepsTheBytesOfARead) {
  far_.send("ab");
  sendAt(999, "c");
  EXPECT_EQ(read(4, 1000), "abc");
  EXPECT_EQ(time_.now(), 1000);
  expectOpen();
}

TEST_P(ReadTest, TimeoutWithTheLastByte_IsInTime) {
  sendAt(1000, "ab");
  EXPECT_EQ(readExact(2, 1000), "ab");
  sendAt(3000, "cd");
  EXPECT_EQ(read(2, -1), "cd");
  EXPECT_EQ(time_.now(), 3000);
}

TEST_P(DripTest, BytesAlwaysThere_DoNotOutlastTheTimeOfARead) {
  EXPECT_EQ(read(10, 500), "xxxxx");
  EXPECT_EQ(time_.now(), 500);
}

TEST_P(DripTest, BytesAlwaysThere_DoNotOutlastTheTimeOfAnExactRead) {
  EXPECT_EQ(readExact(10, 500), "failed");
  EXPECT_EQ(time_.now(), 500);
}

TEST_P(DripTest, BytesAlwaysThere_AreAllTakenWithoutTime) {
  EXPECT_EQ(readExact(5, 0), "xxxxx");
  EXPECT_EQ(read(10, 0), "xxxxx");
}

TEST_P(ReadTest, Gap_EndsAnExactReadAfterTheLastByte) {
  sendAt(500, "a");
  sendAt(600, "b");
  EXPECT_EQ(readExact(3, -1, 100), "failed");
  EXPECT_EQ(time_.now(), 700);
  expectOpen();
}

TEST_P(ReadTest, GapZero_TakesWhatIsThereAfterTheFirstByte) {
  sendAt(500, "a");
  EXPECT_EQ(readExact(3, -1, 0), "failed");
  EXPECT_EQ(time_.now(), 500);
}

TEST_P(ReadTest, Gap_DoesNotOutlastTheTimeout) {
  sendAt(900, "a");
  EXPECT_EQ(readExact(2, 1000, 500), "failed");
  EXPECT_EQ(time_.now(), 1000);
}

TEST_P(ReadTest, NoGap_WaitsForTheTimeout) {
  far_.send("a");
  EXPECT_EQ(readExact(2, 1000, -1), "failed");
  EXPECT_EQ(time_.now(), 1000);
}

TEST_P(ReadTest, End_GivesWhatCameBefore) {
  far_.send("abc");
  far_.close();
  EXPECT_EQ(read(10, -1), "abc");
  EXPECT_TRUE(stream_.closed());
  EXPECT_FALSE(stream_.failed());
  EXPECT_EQ(read(1, -1), "");
}

TEST_P(ReadTest, End_FailsAnExactRead) {
  far_.send("abc");
  far_.close();
  EXPECT_EQ(readExact(3, -1), "abc");
  EXPECT_FALSE(stream_.closed());
  EXPECT_EQ(readExact(1, -1), "failed");
  EXPECT_TRUE(stream_.closed());
  EXPECT_FALSE(stream_.failed());
}

TEST_P(ReadTest, Signals_DoNotEndARead) {
  sendAt(500, "x");
  {
    const failing::Calls calls("poll", {EINTR, EINTR});
    EXPECT_EQ(readExact(1, 1000), "x");
    EXPECT_EQ(calls.left(), 0U);
  }
  EXPECT_EQ(time_.now(), 500);
  far_.send("y");
  const failing::Calls calls("recv", {EINTR, EINTR});
  EXPECT_EQ(read(1, 0), "y");
  EXPECT_EQ(calls.left(), 0U);
}

TEST_P(WaitingReadTest, AnswerWithinAMoment_TakesNoPoll) {
  const failing::Calls calls("poll", {EIO});
  sendAt(19, "x");
  EXPECT_TRUE(stream_.write("y", 1));
  EXPECT_EQ(readExact(1, 1000), "x");
  EXPECT_EQ(far_.receive(1), "y");
  far_.close();
  EXPECT_EQ(read(1, 1000), "");
  EXPECT_EQ(calls.left(), 1U);
}

TEST_P(ReadTest, FailedPoll_IsAFailure) {
  const failing::Calls calls("poll", {ENOMEM});
  EXPECT_EQ(readExact(1, 1000), "failed");
  EXPECT_TRUE(stream_.failed());
  EXPECT_LT(time_.now(), 1000);
}

TEST(Read, Reset_IsAFailureAndNoEnd) {
  RawPair pair = tcpPair();
  SocketStream stream(base::Descriptor(pair.near.release()));
  pair.far.resetOnClose();
  pair.far.close();
  char byte = 0;
  EXPECT_FALSE(stream.readExact(&byte, 1, -1, -1));
  EXPECT_FALSE(stream.closed());
  EXPECT_TRUE(stream.failed());
  EXPECT_FALSE(stream.write("x", 1));
  EXPECT_EQ(stream.read(&byte, 1, -1), 0U);
}

TEST(Read, NotConnected_Fails) {
  SocketStream stream;
  char byte = 0;
  EXPECT_FALSE(stream.readExact(&byte, 1, -1, -1));
  EXPECT_EQ(stream.fd(), -1);
  EXPECT_TRUE(stream.failed());
  SocketStream other;
  EXPECT_FALSE(other.write("x", 1));
  EXPECT_TRUE(other.failed());
}

#if defined(__SANITIZE_THREAD__)  // which keeps what is freed
constexpr std::size_t kGathered = 0;
#else
constexpr std::size_t kGathered = zoripc::SendGather::kCapacity - 1;
#endif

TEST(Read, Silence_GivesTheMemoryOfBothDirectionsBack) {
  constexpr int kStreams = 60;
  const std::string bulk = pattern(100000);
  std::vector<std::unique_ptr<SocketStream>> streams;
  std::vector<RawSocket> fars;
  std::string text(bulk.size(), '\0');
  for (int i = 0; i < kStreams; ++i) {
    RawPair pair = localPair();
    streams.push_back(std::make_unique<SocketStream>(base::Descriptor(pair.near.release())));
    fars.push_back(std::move(pair.far));
  }
  const driven::Time time;
  const long before = residentPages();
  for (int i = 0; i < kStreams; ++i) {
    fars[static_cast<std::size_t>(i)].send(bulk);
    std::size_t got = 0;
    while (got < bulk.size()) got += streams[static_cast<std::size_t>(i)]->read(&text[got], 4096, 0);
    EXPECT_TRUE(streams[static_cast<std::size_t>(i)]->write(bulk.data(), kGathered));
  }
  const long used = residentPages() - before;
  for (auto& stream : streams) EXPECT_EQ(stream->read(text.data(), 1, 40), 0U);
  malloc_trim(0);  // what was freed between what is in use counts as given back
  const long kept = residentPages() - before;
  const long bulkPages = kStreams * static_cast<long>(bulk.size()) / sysconf(_SC_PAGESIZE);
  EXPECT_EQ(time.now(), 40 * kStreams);
  EXPECT_GT(used, bulkPages / 2);
  EXPECT_LT(kept, bulkPages / 10);
  fars.clear();
}

TEST(ReadAheadBuffer, FullSmallRoom_IsFollowedByALargeOne) {
  ReadAhead ahead;
  EXPECT_FALSE(ahead.idle());
  EXPECT_EQ(ahead.prepare().size, ReadAhead::kSmall);
  ahead.received(ReadAhead::kSmall - 1);
  EXPECT_FALSE(ahead.idle());
  std::string text(ReadAhead::kSmall, '\0');
  EXPECT_EQ(ahead.take(text.data(), text.size()), ReadAhead::kSmall - 1);
  EXPECT_TRUE(ahead.idle());
  EXPECT_EQ(ahead.prepare().size, ReadAhead::kSmall);
  ahead.received(ReadAhead::kSmall);
  EXPECT_EQ(ahead.take(text.data(), text.size()), ReadAhead::kSmall);
  EXPECT_EQ(ahead.prepare().size, ReadAhead::kLarge);
  ahead.release();
  EXPECT_EQ(ahead.prepare().size, ReadAhead::kSmall);
}

// Makes `ahead` hold a large buffer; returns where.
static unsigned char* largeRoomOf(ReadAhead& ahead) {
  ahead.expectBulk();
  return ahead.prepare().data;
}

TEST(ReadAheadBuffer, LargeRoomGivenBack_IsTheNextOne) {
  ReadAhead first;
  ReadAhead second;
  unsigned char* const kept = largeRoomOf(first);
  unsigned char* const other = largeRoomOf(second);
  EXPECT_NE(kept, other);
  first.release();
  second.release();
  EXPECT_EQ(largeRoomOf(second), kept);
}
