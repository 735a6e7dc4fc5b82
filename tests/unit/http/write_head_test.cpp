#include <gtest/gtest.h>

#include "tests/unit/http/engine.h"

namespace {

using Lines = std::vector<std::string>;
using zorhtml::HttpHeaders;

// The stream writes of one response head, by an engine that has read a request of the version "HTTP/1.1".
Lines linesOf(int status, int length, const std::string& type, bool keepAlive, const HttpHeaders& extra) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.headers["http-version"] = "HTTP/1.1";
  EXPECT_TRUE(engine.writeResponseHeader(status, length, type, keepAlive, extra));
  EXPECT_EQ(engine.bodyRemaining, length);
  return peer.writes();
}

TEST(WriteResponseHeader, LengthAndType_AreALineEach) {
  EXPECT_EQ(linesOf(200, 5, "text/html", true, {}),
            (Lines{"HTTP/1.1 200 OK\r\n", "Content-Length: 5\r\n", "Content-Type: text/html\r\n",
                   "Connection: Keep-Alive\r\n", "\r\n"}));
}

TEST(WriteResponseHeader, NoKeepAlive_SaysClose) {
  EXPECT_EQ(linesOf(200, 2147483647, "a/b", false, {}),
            (Lines{"HTTP/1.1 200 OK\r\n", "Content-Length: 2147483647\r\n", "Content-Type: a/b\r\n",
                   "Connection: close\r\n", "\r\n"}));
}

TEST(WriteResponseHeader, LengthZeroWithoutType_WritesNeitherLine) {
  EXPECT_EQ(linesOf(200, 0, "", true, {}), (Lines{"HTTP/1.1 200 OK\r\n", "Connection: Keep-Alive\r\n", "\r\n"}));
}

TEST(WriteResponseHeader, LengthZeroWithType_WritesBoth) {
  EXPECT_EQ(linesOf(200, 0, "text/plain", true, {}),
            (Lines{"HTTP/1.1 200 OK\r\n", "Content-Length: 0\r\n", "Content-Type: text/plain\r\n",
                   "Connection: Keep-Alive\r\n", "\r\n"}));
}

TEST(WriteResponseHeader, LengthWithoutType_WritesTheLength) {
  EXPECT_EQ(linesOf(200, 3, "", true, {}),
            (Lines{"HTTP/1.1 200 OK\r\n", "Content-Length: 3\r\n", "Connection: Keep-Alive\r\n", "\r\n"}));
}

TEST(WriteResponseHeader, NegativeLength_IsChunked) {
  EXPECT_EQ(linesOf(200, -1, "", true, {}),
            (Lines{"HTTP/1.1 200 OK\r\n", "Transfer-Encoding: chunked\r\n", "Connection: Keep-Alive\r\n", "\r\n"}));
  EXPECT_EQ(linesOf(200, -7, "a/b", true, {})[1], "Transfer-Encoding: chunked\r\n");
}

TEST(WriteResponseHeader, Version_IsThatOfTheMessageRead) {
  const ScriptedPeer peer("GET / FOO\r\n\r\n");
  Engine engine(peer);
  readHead(engine);
  EXPECT_TRUE(engine.writeResponseHeader(404, 0, "", true, {}));
  EXPECT_EQ(peer.writes()[0], "FOO 404 Not Found\r\n");
}

TEST(WriteResponseHeader, NothingRead_WritesAnEmptyVersion) {
  const ScriptedPeer peer;
  Engine engine(peer);
  EXPECT_TRUE(engine.writeResponseHeader(200, 0, "", true, {}));
  EXPECT_EQ(peer.writes()[0], " 200 OK\r\n");
  EXPECT_EQ(engine.headers.count("http-version"), 1U);
}

TEST(WriteResponseHeader, OddStatuses_AreErrors) {
  EXPECT_EQ(linesOf(306, 0, "", true, {})[0], "HTTP/1.1 306 Error\r\n");
  EXPECT_EQ(linesOf(414, 0, "", true, {})[0], "HTTP/1.1 414 Request-URI TOO Large\r\n");
  EXPECT_EQ(linesOf(-2147483647 - 1, 0, "", true, {})[0], "HTTP/1.1 -2147483648 Error\r\n");
}

TEST(WriteResponseHeader, ExtraFields_FollowInKeyOrderAsSpelled) {
  EXPECT_EQ(linesOf(200, 0, "", true, {{"x-lower", " v "}, {"X-Frame", ""}, {"Cache-Control", "no-store"}}),
            (Lines{"HTTP/1.1 200 OK\r\n", "Connection: Keep-Alive\r\n", "Cache-Control: no-store\r\n", "X-Frame: \r\n",
                   "x-lower:  v \r\n", "\r\n"}));
}

TEST(WriteResponseHeader, UpgradeOfAnyCase_GoesBeforeTheFraming) {
  EXPECT_EQ(
      linesOf(101, 4, "a/b", true, {{"Accept", "x"}, {"CONNECTION", "uPGRADE"}, {"connection", "Upgrade"}}),
      (Lines{"HTTP/1.1 101 Switching Protocols\r\n", "CONNECTION: uPGRADE\r\n", "connection: Upgrade\r\n",
             "Content-Length: 4\r\n", "Content-Type: a/b\r\n", "Connection: Keep-Alive\r\n", "Accept: x\r\n", "\r\n"}));
}

TEST(WriteResponseHeader, FramingFieldsOfAnyCase_AreDropped) {
  EXPECT_EQ(linesOf(200, 0, "", true,
                    {{"content-length", "9"},
                     {"CONTENT-TYPE", "x"},
                     {"Content-Encoding", "gzip"},
                     {"Transfer-encoding", "chunked"}}),
            (Lines{"HTTP/1.1 200 OK\r\n", "Connection: Keep-Alive\r\n", "\r\n"}));
}

TEST(WriteResponseHeader, OtherConnectionField_IsWrittenBesideTheEnginesOwn) {
  EXPECT_EQ(linesOf(200, 0, "", true, {{"CONNECTION", "Upgrade, x"}, {"Connection", "close"}, {"Upgrade", "upgrade"}}),
            (Lines{"HTTP/1.1 200 OK\r\n", "Connection: Keep-Alive\r\n", "CONNECTION: Upgrade, x\r\n",
                   "Connection: close\r\n", "Upgrade: upgrade\r\n", "\r\n"}));
}

TEST(WriteResponseHeader, EveryFailingWrite_GivesFalseAndKeepsTheStream) {
  const HttpHeaders extra = {{"Connection", "upgrade"}, {"A", "1"}, {"B", "2"}};
  for (int nth = 1; nth <= 8; ++nth) {
    ScriptedPeer peer;
    Engine engine(peer.failWrite(nth));
    engine.bodyRemaining = 7;
    EXPECT_FALSE(engine.writeResponseHeader(200, 5, "a/b", true, extra)) << nth;
    EXPECT_EQ(engine.bodyRemaining, 5) << nth;
    EXPECT_EQ(peer.writeCalls(), nth);
    EXPECT_FALSE(peer.deleted()) << nth;
    EXPECT_NE(engine.connection, nullptr) << nth;
  }
  ScriptedPeer peer;
  Engine engine(peer.failWrite(9));
  EXPECT_TRUE(engine.writeResponseHeader(200, 5, "a/b", true, extra));
}

TEST(WriteResponseHeader, NoConnection_ChangesNothing) {
  Engine engine;
  engine.bodyRemaining = 7;
  EXPECT_FALSE(engine.writeResponseHeader(200, 5, "", true, {}));
  EXPECT_EQ(engine.bodyRemaining, 7);
  EXPECT_TRUE(engine.headers.empty());
}

}  // namespace
