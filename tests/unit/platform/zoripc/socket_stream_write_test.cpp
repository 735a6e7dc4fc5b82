#include <sys/socket.h>

#include <memory>
#include <string>
#include <thread>

#include "tests/unit/platform/zoripc/sockets.h"

using zoripc::SendGather;
using zoripc::SocketStream;

namespace {

constexpr int kLongMs = 60000;

class WriteTest : public testing::Test {
 protected:
  void TearDown() override { far_.close(); }  // the stream's end waits for its peer's
  bool write(const std::string& text) { return stream_->write(text.data(), text.size()); }

  RawPair pair_ = localPair();
  RawSocket& far_ = pair_.far;
  std::unique_ptr<SocketStream> stream_ = std::make_unique<SocketStream>(pair_.near.release());
};

void shrinkSendBuffer(int fd) {
  const int small = 4096;
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
}

}  // namespace

TEST_F(WriteTest, SmallWrites_AreGathered) {
  EXPECT_TRUE(write("one "));
  EXPECT_TRUE(write(""));
  EXPECT_TRUE(write("two"));
  EXPECT_EQ(far_.waiting(), 0);
}

TEST_F(WriteTest, ReadOfWhatIsReadAhead_SendsNothing) {
  far_.send("xyz");
  char bytes[2] = "";
  EXPECT_TRUE(stream_->readExact(bytes, 1, kLongMs, -1));
  write("gathered");
  EXPECT_TRUE(stream_->readExact(bytes, 2, kLongMs, -1));
  EXPECT_EQ(far_.waiting(), 0);
}

TEST_F(WriteTest, ReadBeyondWhatIsReadAhead_SendsFirst) {
  far_.send("x");
  write("gathered");
  char byte = 0;
  EXPECT_TRUE(stream_->readExact(&byte, 1, kLongMs, -1));
  EXPECT_EQ(byte, 'x');
  EXPECT_EQ(far_.receive(8), "gathered");
}

TEST_F(WriteTest, ReadThatBlocks_SendsFirst) {
  write("ping");
  std::thread peer([&] {
    EXPECT_EQ(far_.receive(4), "ping");
    far_.send("pong");
  });
  std::string answer(4, '\0');
  EXPECT_TRUE(stream_->readExact(answer.data(), 4, kLongMs, -1));
  EXPECT_EQ(answer, "pong");
  peer.join();
}

TEST_F(WriteTest, ReadWithoutTime_SendsWhenNothingIsThere) {
  write("ping");
  char byte = 0;
  EXPECT_FALSE(stream_->readExact(&byte, 1, 0, 0));
  EXPECT_EQ(far_.receive(4), "ping");
}

TEST_F(WriteTest, FullGatheringBuffer_IsSent) {
  const std::string first = pattern(SendGather::kCapacity);
  EXPECT_TRUE(write(first));
  EXPECT_EQ(far_.waiting(), 0);
  EXPECT_TRUE(write("+"));
  EXPECT_EQ(far_.receive(first.size() + 1), first + "+");
}

TEST_F(WriteTest, SmallAndLargeMixed_ArriveInOrder) {
  const std::string large = pattern(3000000);
  std::string got;
  std::thread peer([&] {
    got = far_.receiveAll();
    far_.close();
  });
  EXPECT_TRUE(write("head\r\n"));
  EXPECT_TRUE(write(large));
  EXPECT_TRUE(write("tail"));
  stream_.reset();
  peer.join();
  EXPECT_EQ(got, "head\r\n" + large + "tail");
}

TEST_F(WriteTest, PeerThatTakesLittle_GetsAll) {
  shrinkSendBuffer(stream_->fd());
  const std::string large = pattern(200000);
  std::string got;
  std::thread peer([&] {
    while (got.size() < large.size()) {
      const std::string piece = far_.receive(std::min<std::size_t>(997, large.size() - got.size()));
      if (piece.empty()) break;
      got += piece;
    }
    far_.close();
  });
  for (std::size_t at = 0; at < large.size(); at += 1000) EXPECT_TRUE(write(large.substr(at, 1000)));
  stream_.reset();
  peer.join();
  EXPECT_EQ(got, large);
}

TEST_F(WriteTest, ReadThatBlocks_SendsAllThoughThePeerTakesLittleAtATime) {
  shrinkSendBuffer(stream_->fd());
  const std::string gathered = pattern(SendGather::kCapacity);
  EXPECT_TRUE(write(gathered));
  std::string got;
  std::thread peer([&] {
    got = far_.receive(gathered.size());
    far_.send("!");
  });
  char byte = 0;
  EXPECT_TRUE(stream_->readExact(&byte, 1, kLongMs, -1));
  peer.join();
  EXPECT_EQ(got, gathered);
}

TEST_F(WriteTest, PeerThatSendsBeforeItReads_StopsNobody) {
  shrinkSendBuffer(stream_->fd());
  const std::string gathered = pattern(SendGather::kCapacity);
  const std::string flood = pattern(1000000);
  EXPECT_TRUE(write(gathered));
  std::string got;
  std::thread peer([&] {
    far_.send(flood);
    got = far_.receive(gathered.size());
    far_.close();
  });
  std::string answer(flood.size(), '\0');
  EXPECT_TRUE(stream_->readExact(answer.data(), answer.size(), kLongMs, -1));
  EXPECT_EQ(answer, flood);
  stream_.reset();
  peer.join();
  EXPECT_EQ(got, gathered);
}

TEST_F(WriteTest, PeerGone_FailsALaterWriteWithoutASignal) {
  far_.close();
  EXPECT_TRUE(write("gathered"));
  bool taken = true;
  for (int i = 0; i < 3 && taken; ++i) taken = write(pattern(SendGather::kCapacity / 2));
  EXPECT_FALSE(taken);
  EXPECT_TRUE(stream_->failed());
  EXPECT_FALSE(write("x"));
}

TEST_F(WriteTest, PeerThatReadsNoMore_FailsTheWriteThatFollowsTheSend) {
  shutdown(far_.fd(), SHUT_RD);
  EXPECT_TRUE(write("gathered"));
  char byte = 0;
  EXPECT_FALSE(stream_->readExact(&byte, 1, 0, -1));
  EXPECT_FALSE(write("x"));
  EXPECT_TRUE(stream_->failed());
  EXPECT_FALSE(stream_->closed());
}

TEST_F(WriteTest, PeerGone_FailsALargeWrite) {
  far_.close();
  EXPECT_FALSE(write(pattern(100000)));
  EXPECT_TRUE(stream_->failed());
}

TEST_F(WriteTest, FailedWrite_LeavesWhatThePeerSentReadable) {
  far_.send("last words");
  far_.close();
  EXPECT_FALSE(write(pattern(100000)));
  std::string text(10, '\0');
  EXPECT_TRUE(stream_->readExact(text.data(), 10, kLongMs, -1));
  EXPECT_EQ(text, "last words");
}

TEST_F(WriteTest, HalfClosedPeer_StillGetsAnswers) {
  far_.send("request");
  shutdown(far_.fd(), SHUT_WR);
  std::string text(8, '\0');
  EXPECT_EQ(stream_->read(text.data(), 8, kLongMs), 7U);
  EXPECT_TRUE(stream_->closed());
  EXPECT_TRUE(write("answer"));
  stream_.reset();
  EXPECT_EQ(far_.receiveAll(), "answer");
}

TEST(Write, PeerThatTakesNothing_FailsTheWriteInTheEnd) {
  RawPair pair = localPair();
  SocketStream stream(pair.near.release(), 50);
  const std::string large = pattern(5000000);
  EXPECT_FALSE(stream.write(large.data(), large.size()));
  EXPECT_TRUE(stream.failed());
  EXPECT_FALSE(stream.closed());
}
