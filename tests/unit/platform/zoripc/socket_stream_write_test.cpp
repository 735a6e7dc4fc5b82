#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <string>

#include "tests/unit/platform/zoripc/driven_time.h"
#include "tests/unit/platform/zoripc/failing_calls.h"
#include "tests/unit/platform/zoripc/sockets.h"

using zoripc::SendGather;
using zoripc::SocketStream;

namespace {

// On a clock that only the stream's own waiting sets forward.
class WriteTest : public testing::TestWithParam<Waits> {
 protected:
  void TearDown() override { far_.close(); }  // the stream's end waits for its peer's
  bool write(const std::string& text) { return stream_->write(text.data(), text.size()); }

  // The peer receives a piece from time to time, into `got_`.
  void receiveEvery(long long ms, std::size_t size) {
    time_.every(ms, [this, size] {
      got_ += far_.receiveSome(size);
      return true;
    });
  }

  // What the stream's end is told while the peer is still there.
  std::string finish() {
    stream_.reset();
    got_ += far_.receiveAll();
    return got_;
  }

  std::string got_;
  driven::Time time_;
  RawPair pair_ = localPair();
  RawSocket& far_ = pair_.far;
  std::unique_ptr<SocketStream> stream_ = makeStream(pair_, GetParam());
};

void shrinkSendBuffer(int fd) {
  const int small = 4096;
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Write, WriteTest, kBothWaits, nameOfWaits);

TEST_P(WriteTest, SmallWrites_AreGatheredUntilTheBufferIsFull) {
  const std::string first = pattern(16384);
  EXPECT_TRUE(write(first.substr(0, 5)));
  EXPECT_TRUE(write(""));
  EXPECT_TRUE(write(first.substr(5)));
  EXPECT_EQ(far_.waiting(), 0);
  EXPECT_TRUE(write("+"));
  EXPECT_EQ(far_.receiveSome(20000), first + "+");
}

TEST_P(WriteTest, ReadOfWhatIsReadAhead_SendsNothing) {
  far_.send("xyz");
  char bytes[2] = "";
  EXPECT_TRUE(stream_->readExact(bytes, 1, 0, -1));
  write("gathered");
  EXPECT_TRUE(stream_->readExact(bytes, 2, 0, -1));
  EXPECT_EQ(far_.waiting(), 0);
}

TEST_P(WriteTest, ReadBeyondWhatIsReadAhead_SendsFirst) {
  far_.send("x");
  write("gathered");
  char byte = 0;
  EXPECT_TRUE(stream_->readExact(&byte, 1, 0, -1));
  EXPECT_EQ(byte, 'x');
  EXPECT_EQ(far_.receiveSome(20), "gathered");
}

TEST_P(WriteTest, ReadThatBlocks_SendsFirst) {
  write("ping");
  time_.at(500, [&] {
    EXPECT_EQ(far_.receiveSome(20), "ping");
    far_.send("pong");
  });
  std::string answer(4, '\0');
  EXPECT_TRUE(stream_->readExact(answer.data(), 4, 1000, -1));
  EXPECT_EQ(answer, "pong");
}

TEST_P(WriteTest, ReadWithoutTime_SendsWhenNothingIsThere) {
  write("ping");
  char byte = 0;
  EXPECT_FALSE(stream_->readExact(&byte, 1, 0, 0));
  EXPECT_EQ(far_.receiveSome(20), "ping");
}

TEST_P(WriteTest, SmallAndLargeMixed_ArriveInOrder) {
  const std::string large = pattern(3000000);
  receiveEvery(1, 100000);
  EXPECT_TRUE(write("head\r\n"));
  EXPECT_TRUE(write(large));
  EXPECT_TRUE(write("tail"));
  EXPECT_EQ(finish(), "head\r\n" + large + "tail");
}

TEST_P(WriteTest, PeerThatTakesLittle_GetsAll) {
  shrinkSendBuffer(stream_->fd());
  const std::string large = pattern(200000);
  receiveEvery(1, 997);
  for (std::size_t at = 0; at < large.size(); at += 1000) EXPECT_TRUE(write(large.substr(at, 1000)));
  EXPECT_EQ(finish(), large);
}

TEST_P(WriteTest, ReadThatBlocks_SendsAllThoughThePeerTakesLittleAtATime) {
  shrinkSendBuffer(stream_->fd());
  const std::string gathered = pattern(SendGather::kCapacity);
  EXPECT_TRUE(write(gathered));
  receiveEvery(10, 997);
  time_.at(5000, [&] { far_.send("!"); });
  char byte = 0;
  EXPECT_TRUE(stream_->readExact(&byte, 1, 5000, -1));
  EXPECT_EQ(got_, gathered);
}

TEST_P(WriteTest, PeerThatSendsBeforeItReads_StopsNobody) {
  shrinkSendBuffer(stream_->fd());
  const std::string gathered = pattern(SendGather::kCapacity);
  const std::string flood = pattern(1000000);
  EXPECT_TRUE(write(gathered));
  std::size_t sent = 0;
  time_.every(1, [&] {
    sent += far_.sendSome(flood.substr(sent));
    if (sent == flood.size()) receiveEvery(1, 997);
    return sent < flood.size();
  });
  std::string answer(flood.size(), '\0');
  EXPECT_TRUE(stream_->readExact(answer.data(), answer.size(), 60000, -1));
  EXPECT_EQ(answer, flood);
  EXPECT_EQ(finish(), gathered);
}

// As long as something is taken now and then, the write goes on.
TEST_P(WriteTest, PeerThatTakesNothingForHalfAMinute_FailsTheWrite) {
  const std::string large = pattern(5000000);
  int pieces = 0;
  time_.every(29999, [&] { return ++pieces <= 3 && !far_.receiveSome(1000000).empty(); });
  EXPECT_FALSE(write(large));
  EXPECT_EQ(time_.now(), 3 * 29999 + 30000);
  EXPECT_TRUE(stream_->failed());
  EXPECT_FALSE(stream_->closed());
}

TEST_P(WriteTest, Signals_DoNotEndAWrite) {
  const failing::Calls calls("sendmsg", {EINTR, EINTR});
  EXPECT_TRUE(write(pattern(20000)));
  EXPECT_EQ(calls.left(), 0U);
  EXPECT_EQ(far_.receiveSome(30000), pattern(20000));
}

TEST_P(WriteTest, PeerGone_FailsALaterWriteWithoutASignal) {
  far_.close();
  EXPECT_TRUE(write("gathered"));
  EXPECT_TRUE(write(pattern(SendGather::kCapacity / 2)));
  EXPECT_FALSE(write(pattern(SendGather::kCapacity)));
  EXPECT_TRUE(stream_->failed());
  EXPECT_FALSE(stream_->closed());
  EXPECT_FALSE(write("x"));
  EXPECT_FALSE(write(""));
}

TEST_P(WriteTest, PeerThatReadsNoMore_FailsTheWriteThatFollowsTheSend) {
  shutdown(far_.fd(), SHUT_RD);
  EXPECT_TRUE(write("gathered"));
  char byte = 0;
  EXPECT_FALSE(stream_->readExact(&byte, 1, 0, -1));
  EXPECT_FALSE(write("x"));
  EXPECT_TRUE(stream_->failed());
  EXPECT_FALSE(stream_->closed());
}

TEST_P(WriteTest, FailedWrite_LeavesWhatThePeerSentReadable) {
  far_.send("last words");
  far_.close();
  EXPECT_FALSE(write(pattern(100000)));
  std::string text(10, '\0');
  EXPECT_TRUE(stream_->readExact(text.data(), 10, 0, -1));
  EXPECT_EQ(text, "last words");
}

TEST_P(WriteTest, HalfClosedPeer_StillGetsAnswers) {
  far_.send("request");
  shutdown(far_.fd(), SHUT_WR);
  std::string text(8, '\0');
  EXPECT_EQ(stream_->read(text.data(), 8, -1), 7U);
  EXPECT_TRUE(stream_->closed());
  EXPECT_TRUE(write("answer"));
  EXPECT_EQ(finish(), "answer");
}
