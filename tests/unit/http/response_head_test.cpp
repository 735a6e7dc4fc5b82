#include <gtest/gtest.h>

#include "tests/unit/http/engine.h"

namespace {

using zorhtml::HttpMethod;
using End = ScriptedPeer::End;

TEST(ResponseHead, StatusLine_GivesItsStatusAndVersion) {
  const Head head = readHead("HTTP/1.1 404 Not Found at all\r\nA: b\r\nContent-Length: 3\r\n\r\n");
  EXPECT_EQ(head.status, 404);
  EXPECT_EQ(head.method, HttpMethod::Response);
  EXPECT_EQ(static_cast<int>(head.method), 1);
  EXPECT_EQ(head.path, "");
  EXPECT_TRUE(head.keepOpen);
  EXPECT_EQ(head.headers.at("http-version"), "HTTP/1.1");
  EXPECT_EQ(head.headers.at("a"), "b");
  EXPECT_EQ(head.bodyRemaining, 3);
  EXPECT_EQ(readHead("HTTP/1.0 200\r\n\r\n").headers.at("http-version"), "HTTP/1.0");
}

TEST(ResponseHead, OddStatuses_AreReadAsASignedNumber) {
  EXPECT_EQ(readHead("HTTP/1.1 -5 x\r\n\r\n").status, -5);
  EXPECT_EQ(readHead("HTTP/1.1 200x\r\n\r\n").status, 200);
  EXPECT_EQ(readHead("HTTP/1.1 99999999999\r\n\r\n").status, 2147483647);
}

TEST(ResponseHead, StatusThatIsNoNumber_Is400AfterTheFields) {
  const ScriptedPeer peer("HTTP/1.1 OK\r\nA: b\r\n\r\nrest");
  const Head head = readHead(peer);
  EXPECT_EQ(head.status, 400);
  EXPECT_EQ(head.method, HttpMethod::Response);
  EXPECT_TRUE(head.keepOpen);
  EXPECT_EQ(head.headers.at("a"), "b");
  EXPECT_EQ(peer.unread(), 4U);
}

TEST(ResponseHead, CutInTheFields_OverridesTheStatus) {
  const Head closed = readHead(ScriptedPeer("HTTP/1.1 200 OK\r\nA: b", End::Closed));
  EXPECT_EQ(closed.status, 400);
  EXPECT_FALSE(closed.keepOpen);
  const Head silent = readHead(ScriptedPeer("HTTP/1.1 200 OK\r\nA: b", End::TimedOut));
  EXPECT_EQ(silent.status, 408);
  EXPECT_FALSE(silent.keepOpen);
}

TEST(ReadResponse, Response_GivesItsStatusAndKeepsTheMode) {
  Engine engine(ScriptedPeer("HTTP/1.1 204 No Content\r\n\r\n"));
  engine.clientMode = 0;
  bool keepOpen = false;
  EXPECT_EQ(engine.readResponse(keepOpen), 204);
  EXPECT_TRUE(keepOpen);
  EXPECT_EQ(engine.clientMode, 0);
}

TEST(ReadResponse, Request_Is400EvenWhenItFallsSilent) {
  Engine engine(ScriptedPeer("GET / HTTP/1.1\r\n\r\n"));
  bool keepOpen = false;
  EXPECT_EQ(engine.readResponse(keepOpen), 400);
  EXPECT_TRUE(keepOpen);
  EXPECT_EQ(Engine(ScriptedPeer("GET / HTTP/1.1\r\nA", End::TimedOut)).readResponse(keepOpen), 400);
  EXPECT_FALSE(keepOpen);
}

TEST(ReadResponse, NothingReadable_Is400WhateverTheReason) {
  bool keepOpen = true;
  EXPECT_EQ(Engine(ScriptedPeer("", End::TimedOut)).readResponse(keepOpen), 400);
  EXPECT_FALSE(keepOpen);
  EXPECT_EQ(Engine(ScriptedPeer("", End::Closed)).readResponse(keepOpen), 400);
  EXPECT_FALSE(keepOpen);
  EXPECT_EQ(Engine().readResponse(keepOpen), 400);
  EXPECT_TRUE(keepOpen);
}

TEST(ReadResponse, SilenceInTheFields_Is408) {
  bool keepOpen = true;
  EXPECT_EQ(Engine(ScriptedPeer("HTTP/1.1 200 OK\r\n", End::TimedOut)).readResponse(keepOpen), 408);
  EXPECT_FALSE(keepOpen);
}

struct Credentials {
  std::string user = "left", password = "over";
};

Credentials credentialsOf(const std::string& field) {
  Engine engine;
  engine.headers["authorization"] = field;
  Credentials result;
  engine.getBasicAuth(result.user, result.password);
  return result;
}

TEST(GetBasicAuth, BasicField_IsSplitAtTheFirstColon) {
  EXPECT_EQ(credentialsOf("Basic dXNlcjpwYXNz").user, "user");
  EXPECT_EQ(credentialsOf("bAsIc \t dXNlcjpwYXNz trailing").password, "pass");
  const Credentials colons = credentialsOf("Basic YTpiOmM=");  // a:b:c
  EXPECT_EQ(colons.user, "a");
  EXPECT_EQ(colons.password, "b:c");
  const Credentials empty = credentialsOf("Basic Og==");  // :
  EXPECT_EQ(empty.user, "");
  EXPECT_EQ(empty.password, "");
  EXPECT_EQ(credentialsOf("Basic OnB3").password, "pw");    // :pw
  EXPECT_EQ(credentialsOf("Basic dXNlcjo=").user, "user");  // user:
}

TEST(GetBasicAuth, AnythingElse_LeavesBothEmpty) {
  for (const char* field : {"", "Basic", "Basic ", "Digest dXNlcjpwYXNz", "Basicdx dXNlcjpwYXNz",
                            "Basic dXNlcg==", "Basic ====", "Basic -", "dXNlcjpwYXNz"}) {
    EXPECT_EQ(credentialsOf(field).user, "") << field;
    EXPECT_EQ(credentialsOf(field).password, "") << field;
  }
}

TEST(GetBasicAuth, NoField_LeavesBothEmptyAndInsertsNothing) {
  Engine engine;
  std::string user = "left", password = "over";
  engine.getBasicAuth(user, password);
  EXPECT_EQ(user + password, "");
  EXPECT_TRUE(engine.headers.empty());
}

TEST(GetBasicAuth, LongAndBinaryCredentials_ComeWhole) {
  Engine sender, receiver;
  std::string user, password;
  for (int i = 0; i < 5000; ++i) password += static_cast<char>(i);
  sender.setBasicAuth("me", password);
  receiver.headers["authorization"] = "Basic " + sender.basicAuth;
  std::string got;
  receiver.getBasicAuth(user, got);
  EXPECT_EQ(user, "me");
  EXPECT_EQ(got, password);
}

}  // namespace
