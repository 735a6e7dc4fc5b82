#include <sys/socket.h>

#include <memory>
#include <string>
#include <thread>

#include "tests/unit/platform/zoripc/sockets.h"

using zoripc::SocketStream;

namespace {

std::unique_ptr<SocketStream> makeStream(RawPair& pair) { return std::make_unique<SocketStream>(pair.near.release()); }

}  // namespace

TEST(Close, SendsWhatWasGathered) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  EXPECT_TRUE(stream->write("bye", 3));
  std::thread closing([&] { stream.reset(); });
  EXPECT_EQ(pair.far.receiveAll(), "bye");
  pair.far.close();
  closing.join();
}

TEST(Close, PeerThatSentMoreThanWasRead_GetsTheAnswerWhole) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  const std::string request = pattern(3000000);
  const std::string answer = pattern(300000);
  std::thread sender([&] { pair.far.send(request); });
  char byte = 0;
  EXPECT_TRUE(stream->readExact(&byte, 1, -1, -1));
  std::thread closing([&] {
    EXPECT_TRUE(stream->write(answer.data(), answer.size()));
    stream.reset();
  });
  bool reset = true;
  EXPECT_EQ(pair.far.receiveAll(&reset), answer);
  EXPECT_FALSE(reset);
  sender.join();
  pair.far.close();
  closing.join();
}

TEST(Close, PeerThatGoesOnSending_GetsTheAnswerWhole) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  EXPECT_TRUE(stream->write("no", 2));
  std::thread closing([&] { stream.reset(); });
  EXPECT_EQ(pair.far.receive(2), "no");
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(pair.far.send(pattern(10000)));
  bool reset = true;
  EXPECT_EQ(pair.far.receiveAll(&reset), "");
  EXPECT_FALSE(reset);
  pair.far.close();
  closing.join();
}

TEST(Close, PeerThatStaysSilent_HoldsNobodyForever) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  EXPECT_TRUE(stream->write("bye", 3));
  stream.reset();
  EXPECT_EQ(pair.far.receiveAll(), "bye");
}

TEST(Close, PeerThatFloods_HoldsNobodyForever) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  EXPECT_TRUE(stream->write("bye", 3));
  std::size_t sent = 0;
  std::thread flood([&] {
    const std::string block = pattern(1 << 20);
    while (pair.far.send(block)) sent += block.size();
  });
  stream.reset();
  flood.join();
  EXPECT_GE(sent, SocketStream::kCloseDrainBytes / 2);
}

TEST(Close, PeerThatTakesNothing_HoldsNobodyForever) {
  RawPair pair = tcpPair(4096);
  const int small = 4096;
  setsockopt(pair.near.fd(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
  auto stream = std::make_unique<SocketStream>(pair.near.release(), 100);
  const std::string large = pattern(5000000);
  EXPECT_FALSE(stream->write(large.data(), large.size()));
  stream.reset();
}

TEST(Close, NothingWritten_ClosesAtOnceThoughThePeerStays) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  stream.reset();
  EXPECT_EQ(pair.far.receiveAll(), "");
}

TEST(Close, PeerThatClosedFirst_GetsTheRest) {
  RawPair pair = tcpPair();
  auto stream = makeStream(pair);
  shutdown(pair.far.fd(), SHUT_WR);
  char byte = 0;
  EXPECT_EQ(stream->read(&byte, 1, -1), 0U);
  const std::string answer = pattern(15000);
  EXPECT_TRUE(stream->write(answer.data(), answer.size()));
  stream.reset();
  EXPECT_EQ(pair.far.receiveAll(), answer);
}
