#include <gtest/gtest.h>

#include "tests/unit/http/engine.h"

namespace {

using End = ScriptedPeer::End;

TEST(Construction, Defaults_AreStated) {
  const Engine engine;
  EXPECT_EQ(engine.connection, nullptr);
  EXPECT_EQ(engine.timeout, 30000);
  EXPECT_EQ(engine.bodyRemaining, 0);
  EXPECT_EQ(engine.chunkRemaining, 0);
  EXPECT_EQ(engine.basicAuth, "");
  EXPECT_EQ(engine.flag, 1);
  EXPECT_EQ(engine.clientMode, 1);
  EXPECT_EQ(engine.proxyForm, 0);
  EXPECT_TRUE(engine.headers.empty());
}

TEST(Copy, TakesAllButTheStreamAndTheProxyForm) {
  const ScriptedPeer peer;
  Engine original(peer);
  original.timeout = 1;
  original.bodyRemaining = 2;
  original.chunkRemaining = 3;
  original.basicAuth = "four";
  original.flag = 5;
  original.clientMode = 6;
  original.proxyForm = 7;
  original.headers["eight"] = "9";
  {
    const Engine copy(original);
    EXPECT_EQ(copy.connection, nullptr);
    EXPECT_EQ(copy.timeout, 1);
    EXPECT_EQ(copy.bodyRemaining, 2);
    EXPECT_EQ(copy.chunkRemaining, 3);
    EXPECT_EQ(copy.basicAuth, "four");
    EXPECT_EQ(copy.flag, 5);
    EXPECT_EQ(copy.clientMode, 6);
    EXPECT_EQ(copy.proxyForm, 0);
    EXPECT_EQ(copy.headers, original.headers);
  }
  EXPECT_FALSE(peer.deleted());
  EXPECT_NE(original.connection, nullptr);
}

TEST(Destruction, HeldStream_IsDeleted) {
  const ScriptedPeer peer;
  { const Engine engine(peer); }
  EXPECT_TRUE(peer.deleted());
}

TEST(SetConnection, HeldStream_IsDeletedFirst) {
  ScriptedPeer first;
  const ScriptedPeer second;
  Engine engine(first);
  zoripc::IPC* const next = second.stream();
  first.onDelete([&] { EXPECT_NE(engine.connection, next); });
  engine.setConnection(next);
  EXPECT_TRUE(first.deleted());
  EXPECT_FALSE(second.deleted());
  engine.setConnection(nullptr);
  EXPECT_TRUE(second.deleted());
  EXPECT_EQ(engine.connection, nullptr);
}

TEST(SetConnection, SameStream_IsKept) {
  const ScriptedPeer peer("x");
  Engine engine(peer);
  engine.setConnection(engine.connection);
  EXPECT_FALSE(peer.deleted());
}

TEST(IsClosed, NoConnection_IsFalse) { EXPECT_FALSE(Engine().isClosed()); }

TEST(IsClosed, Probe_ReadsOneByteWithoutWaiting) {
  const ScriptedPeer peer("ab", End::TimedOut);
  Engine engine(peer);
  EXPECT_FALSE(engine.isClosed());
  ASSERT_EQ(peer.reads().size(), 1U);
  EXPECT_EQ(peer.reads()[0].size, 1U);
  EXPECT_TRUE(peer.reads()[0].exact);
  EXPECT_EQ(peer.reads()[0].timeoutMs, 0);
  EXPECT_EQ(peer.reads()[0].gapTimeoutMs, 0);
  EXPECT_EQ(peer.unread(), 1U);
}

TEST(IsClosed, IdlePeer_IsOpen) {
  Engine engine(ScriptedPeer("", End::TimedOut));
  EXPECT_FALSE(engine.isClosed());
}

TEST(IsClosed, EndOrFailure_IsClosedAndKeepsTheStream) {
  for (const End end : {End::Closed, End::Failed}) {
    const ScriptedPeer peer("", end);
    Engine engine(peer);
    EXPECT_TRUE(engine.isClosed());
    EXPECT_FALSE(peer.deleted());
  }
}

}  // namespace
