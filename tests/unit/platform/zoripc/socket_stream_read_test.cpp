#include <pthread.h>
#include <sys/socket.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/platform/zoripc/sockets.h"

using zoripc::ReadAhead;
using zoripc::SocketStream;

namespace {

constexpr int kLongMs = 60000;

// Pages of this process that are in memory.
long residentPages() {
  std::ifstream file("/proc/self/statm");
  long total = -1;
  long resident = -1;
  file >> total >> resident;
  return resident;
}

class ReadTest : public testing::Test {
 protected:
  std::string read(std::size_t size, int timeoutMs) {
    std::string text(size, '\0');
    text.resize(stream_.read(text.data(), size, timeoutMs));
    return text;
  }

  std::string readExact(std::size_t size, int timeoutMs, int gapMs = -1) {
    std::string text(size, '\0');
    return stream_.readExact(text.data(), size, timeoutMs, gapMs) ? text : "failed";
  }

  RawPair pair_ = localPair();
  RawSocket& far_ = pair_.far;
  SocketStream stream_{pair_.near.release()};
};

}  // namespace

TEST_F(ReadTest, OneByteRead_TakesAllThatIsThereAhead) {
  far_.send("hello");
  EXPECT_EQ(readExact(1, kLongMs), "h");
  int waiting = -1;
  ioctl(stream_.fd(), FIONREAD, &waiting);
  EXPECT_EQ(waiting, 0);
  EXPECT_EQ(readExact(4, 0), "ello");
}

TEST_F(ReadTest, EverySize_GivesTheSameBytes) {
  const std::string sent = pattern(300000);
  for (const std::size_t step : {1U, 7U, 2047U, 2048U, 2049U, 4096U, 131071U, 131072U, 200000U}) {
    std::thread sender([&] { far_.send(sent); });
    std::string got;
    while (got.size() < sent.size()) {
      const std::size_t size = std::min<std::size_t>(step, sent.size() - got.size());
      const std::string piece = read(size, kLongMs);
      ASSERT_EQ(piece.size(), size) << step;
      got += piece;
    }
    sender.join();
    EXPECT_EQ(got, sent) << step;
  }
}

TEST_F(ReadTest, SizeZero_SucceedsAtOnce) {
  EXPECT_TRUE(stream_.readExact(nullptr, 0, -1, -1));
  EXPECT_EQ(stream_.read(nullptr, 0, -1), 0U);
}

TEST_F(ReadTest, TimeoutZero_TakesOnlyWhatIsThere) {
  EXPECT_EQ(read(4, 0), "");
  far_.send("ab");
  EXPECT_EQ(read(4, 0), "ab");
  EXPECT_EQ(readExact(1, 0, 0), "failed");
  EXPECT_FALSE(stream_.closed());
  EXPECT_FALSE(stream_.failed());
}

TEST_F(ReadTest, TimeoutZero_TakesMoreThanOneBuffer) {
  const std::string sent = pattern(50000);
  far_.send(sent);
  EXPECT_EQ(read(60000, 0), sent);
}

TEST_F(ReadTest, Timeout_LosesTheBytesOfAnExactReadAndIsNoEnd) {
  far_.send("ab");
  EXPECT_EQ(readExact(3, 10), "failed");
  EXPECT_FALSE(stream_.closed());
  EXPECT_FALSE(stream_.failed());
  far_.send("xyz");
  EXPECT_EQ(readExact(3, kLongMs), "xyz");
}

TEST_F(ReadTest, Timeout_KeepsTheBytesOfARead) {
  far_.send("ab");
  EXPECT_EQ(read(3, 10), "ab");
  EXPECT_FALSE(stream_.closed());
}

TEST_F(ReadTest, DripThatOutlastsTheTime_EndsTheCall) {
  std::atomic<bool> stop{false};
  std::thread drip([&] {
    while (!stop && far_.send("x")) std::this_thread::yield();
  });
  std::string text(1U << 26, '\0');
  const std::size_t got = stream_.read(text.data(), text.size(), 50);
  stop = true;
  EXPECT_LT(got, text.size());
  std::thread reader([&] { read(1 << 20, 0); });
  drip.join();
  reader.join();
}

TEST_F(ReadTest, GapOver_EndsAnExactReadWithoutATimeout) {
  far_.send("ab");
  EXPECT_EQ(readExact(3, -1, 5), "failed");
  EXPECT_FALSE(stream_.closed());
}

TEST_F(ReadTest, Gap_DoesNotLimitTheFirstByte) {
  std::thread sender([&] {
    // The reader is in poll by then or comes to it later; both must end the same way.
    std::this_thread::yield();
    far_.send("ab");
  });
  EXPECT_EQ(readExact(2, kLongMs, kLongMs), "ab");
  sender.join();
}

TEST_F(ReadTest, Gap_DoesNotOutlastTheTimeout) { EXPECT_EQ(readExact(3, 5, -1), "failed"); }

TEST_F(ReadTest, End_GivesWhatCameBefore) {
  far_.send("abc");
  far_.close();
  EXPECT_EQ(read(10, -1), "abc");
  EXPECT_TRUE(stream_.closed());
  EXPECT_FALSE(stream_.failed());
  EXPECT_EQ(read(1, -1), "");
}

TEST_F(ReadTest, End_FailsAnExactRead) {
  far_.send("abc");
  far_.close();
  EXPECT_FALSE(stream_.closed());
  EXPECT_EQ(readExact(3, -1), "abc");
  EXPECT_FALSE(stream_.closed());
  EXPECT_EQ(readExact(1, -1), "failed");
  EXPECT_TRUE(stream_.closed());
}

TEST_F(ReadTest, Signals_DoNotEndARead) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  struct sigaction before = {};
  sigaction(SIGUSR1, &action, &before);
  const pthread_t reader = pthread_self();
  std::thread sender([&] {
    for (int i = 0; i < 1000; ++i) pthread_kill(reader, SIGUSR1);
    far_.send("x");
  });
  EXPECT_EQ(readExact(1, kLongMs), "x");
  sender.join();
  sigaction(SIGUSR1, &before, nullptr);
}

TEST(Read, Reset_IsAFailureAndNoEnd) {
  RawPair pair = tcpPair();
  SocketStream stream(pair.near.release());
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

TEST(Read, Silence_GivesTheReadAheadBack) {
  constexpr int kStreams = 60;
  const std::string bulk = pattern(100000);
  std::vector<RawSocket> fars;
  std::vector<std::unique_ptr<SocketStream>> streams;
  std::string text(bulk.size(), '\0');
  const auto each = [&](int timeoutMs) {
    for (auto& stream : streams) stream->read(text.data(), 1, timeoutMs);
  };
  for (int i = 0; i < kStreams; ++i) {
    RawPair pair = localPair();
    streams.push_back(std::make_unique<SocketStream>(pair.near.release()));
    fars.push_back(std::move(pair.far));
  }
  const long before = residentPages();
  for (int i = 0; i < kStreams; ++i) {
    fars[static_cast<std::size_t>(i)].send(bulk);
    std::size_t got = 0;
    while (got < bulk.size()) got += streams[static_cast<std::size_t>(i)]->read(&text[got], 4096, 0);
  }
  const long used = residentPages() - before;
  each(40);
  const long kept = residentPages() - before;
  const long bulkPages = kStreams * static_cast<long>(bulk.size()) / sysconf(_SC_PAGESIZE);
  EXPECT_GT(used, bulkPages / 2);
  EXPECT_LT(kept, bulkPages / 10);
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
