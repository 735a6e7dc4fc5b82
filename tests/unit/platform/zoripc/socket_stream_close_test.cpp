#include <sys/socket.h>

#include <memory>
#include <string>
#include <thread>

#include "tests/unit/platform/zoripc/driven_time.h"
#include "tests/unit/platform/zoripc/sockets.h"

using zoripc::SocketStream;

namespace {

constexpr std::size_t kDrained = std::size_t{64} * 1024 * 1024;

class CloseTest : public testing::TestWithParam<Waits> {
 protected:
  static std::unique_ptr<SocketStream> makeStream(RawPair& pair) { return ::makeStream(pair, GetParam()); }
};

void expectEnd(const RawSocket& far, const std::string& before) {
  bool reset = true;
  EXPECT_EQ(far.receiveAll(&reset), before);
  EXPECT_FALSE(reset);
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Close, CloseTest, kBothWaits, nameOfWaits);

TEST_P(CloseTest, SendsWhatWasGathered) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  EXPECT_TRUE(stream->write("bye", 3));
  std::thread closing([&] { stream.reset(); });
  expectEnd(pair.far, "bye");
  pair.far.close();
  closing.join();
}

// The peer is sending still when the connection ends, whether it gets an answer or none.
TEST_P(CloseTest, PeerThatSentMoreThanWasRead_GetsTheAnswerWholeAndAnEnd) {
  const std::string request = pattern(3000000);
  for (const std::string& answer : {pattern(300000), std::string()}) {
    RawPair pair = tcpPair();
    auto stream = makeStream(pair);
    std::thread sender([&] { EXPECT_TRUE(pair.far.send(request)); });
    char byte = 0;
    EXPECT_TRUE(stream->readExact(&byte, 1, -1, -1));
    std::thread closing([&] {
      EXPECT_TRUE(stream->write(answer.data(), answer.size()));
      stream.reset();
    });
    expectEnd(pair.far, answer);
    sender.join();
    pair.far.close();
    closing.join();
  }
}

TEST_P(CloseTest, PeerThatGoesOnSending_GetsTheAnswerWholeAndAnEnd) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  EXPECT_TRUE(stream->write("no", 2));
  std::thread closing([&] { stream.reset(); });
  EXPECT_EQ(pair.far.receive(2), "no");
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(pair.far.send(pattern(10000)));
  expectEnd(pair.far, "");
  pair.far.close();
  closing.join();
}

TEST_P(CloseTest, NeitherReadNorWritten_EndsAtOnceThoughBytesHaveCome) {
  for (const std::string& sent : {std::string(), pattern(20000)}) {
    RawPair pair = tcpPair();
    auto stream = makeStream(pair);
    EXPECT_TRUE(pair.far.send(sent));
    const driven::Time time;
    stream.reset();
    EXPECT_EQ(time.now(), 0);
    expectEnd(pair.far, "");
  }
}

TEST_P(CloseTest, ReadWithoutSuccess_WaitsForThePeerAsWell) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  driven::Time time;
  char byte = 0;
  EXPECT_EQ(stream->read(&byte, 1, 0), 0U);
  time.at(1500, [&] { pair.far.close(); });
  stream.reset();
  EXPECT_EQ(time.now(), 1500);
}

TEST_P(CloseTest, PeerThatStaysSilent_IsWaitedForTwoSeconds) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  EXPECT_TRUE(stream->write("bye", 3));
  const driven::Time time;
  stream.reset();
  EXPECT_EQ(time.now(), 2000);
  expectEnd(pair.far, "bye");
}

TEST_P(CloseTest, PeerThatGoesOnForEver_IsWaitedForTenSeconds) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  EXPECT_TRUE(stream->write("bye", 3));
  driven::Time time;
  time.every(1999, [&] { return pair.far.send("x"); });
  stream.reset();
  EXPECT_EQ(time.now(), 10000);
}

TEST_P(CloseTest, PeerThatFloods_IsReadFor64MiB) {
  RawPair pair = localPair();
  auto stream = makeStream(pair);
  EXPECT_TRUE(stream->write("bye", 3));
  const std::string block = pattern(1 << 16);
  std::size_t sent = 0;
  driven::Time time;
  time.every(1, [&] {
    const std::size_t count = pair.far.sendSome(block);
    sent += count;
    return count > 0;
  });
  stream.reset();
  EXPECT_GE(sent, kDrained);
  EXPECT_LE(sent, kDrained + block.size());
  EXPECT_LT(time.now(), 10000);
}

TEST_P(CloseTest, PeerThatTakesNothing_IsWaitedForTenSeconds) {
  RawPair pair = localPair();
  const int small = 4096;
  setsockopt(pair.near.fd(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
  auto stream = makeStream(pair);
  const std::string gathered = pattern(16384);
  EXPECT_TRUE(stream->write(gathered.data(), gathered.size()));
  const driven::Time time;
  stream.reset();
  EXPECT_EQ(time.now(), 10000);
}

TEST_P(CloseTest, PeerThatClosedFirst_GetsTheRest) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  shutdown(pair.far.fd(), SHUT_WR);
  char byte = 0;
  EXPECT_EQ(stream->read(&byte, 1, -1), 0U);
  const std::string answer = pattern(15000);
  EXPECT_TRUE(stream->write(answer.data(), answer.size()));
  const driven::Time time;
  stream.reset();
  EXPECT_EQ(time.now(), 0);
  expectEnd(pair.far, answer);
}
