#include <gtest/gtest.h>

#include "tests/unit/http/engine.h"

namespace {

using Lines = std::vector<std::string>;

TEST(WriteBody, FixedLength_CountsDown) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.bodyRemaining = 5;
  EXPECT_TRUE(engine.writeBody("hello", 2));
  EXPECT_TRUE(engine.writeBody(std::string("llo")));
  EXPECT_EQ(peer.writes(), (Lines{"he", "llo"}));
  EXPECT_EQ(engine.bodyRemaining, 0);
}

TEST(WriteBody, MoreThanAnnounced_SendsNothingAndCloses) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.bodyRemaining = 5;
  EXPECT_FALSE(engine.writeBody("hello!", 6));
  EXPECT_EQ(peer.writeCalls(), 0);
  EXPECT_TRUE(peer.deleted());
  EXPECT_EQ(engine.connection, nullptr);
  EXPECT_EQ(engine.bodyRemaining, 5);
}

TEST(WriteBody, Chunked_WritesSizeDataAndLineEnd) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.bodyRemaining = -1;
  EXPECT_TRUE(engine.writeBody(std::string("abc")));
  EXPECT_TRUE(engine.writeBody(std::vector<unsigned char>{'d', 'e'}));
  EXPECT_TRUE(engine.finishBody());
  EXPECT_EQ(peer.writes(), (Lines{"3\r\n", "abc", "\r\n", "2\r\n", "de", "\r\n", "0\r\n\r\n"}));
  EXPECT_EQ(engine.bodyRemaining, -1);
  EXPECT_TRUE(engine.headers.empty());
}

TEST(WriteBody, ChunkSize_IsLowerCaseHexadecimal) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.bodyRemaining = -5;
  EXPECT_TRUE(engine.writeBody(std::string(0x1abc, 'x')));
  EXPECT_EQ(peer.writes()[0], "1abc\r\n");
  EXPECT_EQ(engine.bodyRemaining, -5);
}

TEST(WriteBody, Nothing_TouchesNoStream) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.bodyRemaining = -1;
  EXPECT_TRUE(engine.writeBody("x", 0));
  EXPECT_TRUE(engine.writeBody(std::string()));
  EXPECT_TRUE(engine.writeBody(std::vector<unsigned char>()));
  EXPECT_EQ(peer.writeCalls(), 0);
}

TEST(WriteBody, NegativeLength_FailsAndCloses) {
  for (const int framing : {-1, 5}) {
    const ScriptedPeer peer;
    Engine engine(peer);
    engine.bodyRemaining = framing;
    EXPECT_FALSE(engine.writeBody("x", -1));
    EXPECT_EQ(peer.writeCalls(), 0);
    EXPECT_TRUE(peer.deleted());
  }
}

TEST(WriteBody, NoConnection_FailsUnlessAStringOrVectorIsEmpty) {
  Engine engine;
  EXPECT_FALSE(engine.writeBody("x", 1));
  EXPECT_FALSE(engine.writeBody("x", 0));
  EXPECT_FALSE(engine.writeBody(std::string("x")));
  EXPECT_TRUE(engine.writeBody(std::string()));
  EXPECT_TRUE(engine.writeBody(std::vector<unsigned char>()));
}

TEST(WriteBody, EveryFailingWriteOfAChunk_Closes) {
  for (int nth = 1; nth <= 3; ++nth) {
    ScriptedPeer peer;
    Engine engine(peer.failWrite(nth));
    engine.bodyRemaining = -1;
    EXPECT_FALSE(engine.writeBody("abc", 3)) << nth;
    EXPECT_EQ(peer.writeCalls(), nth);
    EXPECT_TRUE(peer.deleted()) << nth;
    EXPECT_FALSE(engine.finishBody()) << nth;
  }
}

TEST(WriteBody, FailingWriteOfAFixedLength_ClosesAndKeepsTheCount) {
  ScriptedPeer peer;
  Engine engine(peer.failWrite(1));
  engine.bodyRemaining = 5;
  EXPECT_FALSE(engine.writeBody("abc", 3));
  EXPECT_TRUE(peer.deleted());
  EXPECT_EQ(engine.bodyRemaining, 5);
}

TEST(FinishBody, BodyInFull_SendsNothing) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.bodyRemaining = 0;
  EXPECT_TRUE(engine.finishBody());
  EXPECT_EQ(peer.writeCalls(), 0);
  EXPECT_FALSE(peer.deleted());
  EXPECT_EQ(engine.bodyRemaining, -1);
  EXPECT_TRUE(engine.headers.empty());
}

// Both the loop and the write count down, so half of the shortfall is padded and an odd one ends in a failed write.
TEST(FinishBody, Shortfall_IsPaddedByHalfAndClosesWhenOdd) {
  for (int shortfall = 1; shortfall <= 9; ++shortfall) {
    const ScriptedPeer peer;
    Engine engine(peer);
    engine.bodyRemaining = shortfall;
    EXPECT_TRUE(engine.finishBody()) << shortfall;
    EXPECT_EQ(peer.writes(), Lines(static_cast<std::size_t>(shortfall / 2), " ")) << shortfall;
    EXPECT_EQ(peer.deleted(), shortfall % 2 == 1) << shortfall;
    EXPECT_EQ(engine.bodyRemaining, -1) << shortfall;
  }
}

TEST(FinishBody, OneOfFourBytesWritten_SendsABlankAndCloses) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.bodyRemaining = 4;
  EXPECT_TRUE(engine.writeBody("a", 1));
  EXPECT_TRUE(engine.finishBody());
  EXPECT_EQ(peer.writes(), (Lines{"a", " "}));
  EXPECT_TRUE(peer.deleted());
}

TEST(FinishBody, EveryFailingBlank_StillGivesTrue) {
  for (int nth = 1; nth <= 4; ++nth) {
    ScriptedPeer peer;
    Engine engine(peer.failWrite(nth));
    engine.bodyRemaining = 8;
    EXPECT_TRUE(engine.finishBody()) << nth;
    EXPECT_EQ(peer.writeCalls(), nth);
    EXPECT_TRUE(peer.deleted()) << nth;
    EXPECT_EQ(engine.bodyRemaining, -1) << nth;
  }
}

TEST(FinishBody, FailingLastChunk_Closes) {
  ScriptedPeer peer;
  Engine engine(peer.failWrite(1));
  engine.bodyRemaining = -1;
  EXPECT_FALSE(engine.finishBody());
  EXPECT_TRUE(peer.deleted());
  EXPECT_EQ(engine.connection, nullptr);
}

TEST(FinishBody, ChunkedReplyToARequestThatAskedForClose_Closes) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.bodyRemaining = -1;
  engine.clientMode = 0;
  engine.headers["connection"] = "TE, Close";
  EXPECT_TRUE(engine.finishBody());
  EXPECT_EQ(peer.writes(), (Lines{"0\r\n\r\n"}));
  EXPECT_TRUE(peer.deleted());
}

TEST(FinishBody, ChunkedReplyOtherwise_KeepsTheConnection) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.bodyRemaining = -1;
  engine.clientMode = 0;
  EXPECT_TRUE(engine.finishBody());
  EXPECT_FALSE(peer.deleted());
  EXPECT_EQ(engine.headers.count("connection"), 1U);
}

TEST(FinishBody, ChunkedBodyOutsideServerMode_IgnoresTheField) {
  for (const int mode : {1, 2, -1}) {
    const ScriptedPeer peer;
    Engine engine(peer);
    engine.bodyRemaining = -7;
    engine.clientMode = mode;
    engine.headers["connection"] = "close";
    EXPECT_TRUE(engine.finishBody());
    EXPECT_EQ(peer.writes(), (Lines{"0\r\n\r\n"}));
    EXPECT_FALSE(peer.deleted()) << mode;
    EXPECT_EQ(engine.bodyRemaining, -7);
  }
}

TEST(FinishBody, FixedReplyToARequestThatAskedForClose_KeepsTheConnection) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.clientMode = 0;
  engine.headers["connection"] = "close";
  EXPECT_TRUE(engine.finishBody());
  EXPECT_FALSE(peer.deleted());
}

TEST(FinishBody, NoConnection_IsFalse) { EXPECT_FALSE(Engine().finishBody()); }

}  // namespace
