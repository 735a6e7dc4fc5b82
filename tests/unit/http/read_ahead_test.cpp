#include <gtest/gtest.h>

#include <cstring>

#include "tests/unit/http/test_server.h"

namespace {

std::string held(const TestServer& server) { return {server.buffer, static_cast<std::size_t>(server.fill)}; }

void hold(TestServer& server, const std::string& bytes) {
  std::memcpy(server.buffer, bytes.data(), bytes.size());
  server.fill = static_cast<int>(bytes.size());
}

TEST(ReadAhead, NewServer_HoldsNothing) { EXPECT_EQ(TestServer().fill, 0); }

TEST(FillBuffer, BodyBytes_GoBehindTheOnesHeld) {
  TestServer server(ScriptedPeer("worldNEXT"));
  server.bodyRemaining = 5;
  hold(server, "hello ");
  EXPECT_EQ(server.fillBuffer(), 11);
  EXPECT_EQ(held(server), "hello world");
  EXPECT_EQ(server.fillBuffer(), 11);
}

TEST(FillBuffer, LongBody_FillsTheFreeEnd) {
  const ScriptedPeer peer(std::string(10000, 'x'));
  TestServer server(peer);
  server.bodyRemaining = 10000;
  hold(server, "ab");
  EXPECT_EQ(server.fillBuffer(), 4096);
  EXPECT_EQ(held(server), "ab" + std::string(4094, 'x'));
  EXPECT_EQ(peer.reads().back().size, 4094U);
}

TEST(FillBuffer, FullBuffer_ReadsNothing) {
  const ScriptedPeer peer("x");
  TestServer server(peer);
  server.bodyRemaining = 1;
  hold(server, std::string(4096, 'a'));
  EXPECT_EQ(server.fillBuffer(), 4096);
  EXPECT_TRUE(peer.reads().empty());
}

TEST(FillBuffer, FailedRead_IsMinusOneAndKeepsWhatIsHeld) {
  TestServer server(ScriptedPeer("wor"));
  server.bodyRemaining = 5;
  hold(server, "hello");
  EXPECT_EQ(server.fillBuffer(), -1);
  EXPECT_EQ(held(server), "hello");
  EXPECT_EQ(server.fillBuffer(), 5);
}

TEST(ConsumeBuffer, Front_IsDropped) {
  TestServer server;
  hold(server, "hello world");
  server.consumeBuffer(6);
  EXPECT_EQ(held(server), "world");
  server.consumeBuffer(0);
  EXPECT_EQ(held(server), "world");
}

TEST(ConsumeBuffer, AllOrMore_EmptiesIt) {
  for (const int count : {5, 6, 4096, 2147483647}) {
    TestServer server;
    hold(server, "hello");
    server.consumeBuffer(count);
    EXPECT_EQ(server.fill, 0) << count;
  }
}

TEST(ConsumeBuffer, NegativeCount_DropsNothing) {
  TestServer server;
  hold(server, "hello");
  server.consumeBuffer(-1);
  EXPECT_EQ(held(server), "hello");
}

TEST(Copy, TakesTheSettingsButNotTheStream) {
  const ScriptedPeer peer;
  TestServer prototype(peer);
  prototype.timeout = 12;
  prototype.headers["a"] = "b";
  const TestServer copy(prototype);
  EXPECT_EQ(copy.timeout, 12);
  EXPECT_EQ(copy.headers, prototype.headers);
  EXPECT_EQ(copy.connection, nullptr);
  EXPECT_NE(prototype.connection, nullptr);
}

TEST(Copy, BufferAndFill_AreTakenAsTheyStandWhateverFillIs) {
  for (const int fill : {0, 5, 4096, 4097, 2147483647, -1, -2147483647 - 1}) {
    TestServer prototype;
    for (std::size_t i = 0; i < sizeof prototype.buffer; ++i) prototype.buffer[i] = static_cast<char>(i * 7 + 1);
    prototype.fill = fill;
    const TestServer copy(prototype);
    EXPECT_EQ(copy.fill, fill);
    EXPECT_EQ(std::memcmp(copy.buffer, prototype.buffer, sizeof copy.buffer), 0) << fill;
  }
}

}  // namespace
