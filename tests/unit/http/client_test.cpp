#include <gtest/gtest.h>

#include "tests/unit/http/engine.h"

namespace {

using Lines = std::vector<std::string>;
using zorhtml::HttpHeaders;
using zorhtml::HttpMethod;
using End = ScriptedPeer::End;

TEST(SetBasicAuth, Credentials_AreEncoded) {
  Engine engine;
  engine.setBasicAuth("user", "pass");
  EXPECT_EQ(engine.basicAuth, "dXNlcjpwYXNz");
  engine.setBasicAuth("", "");
  EXPECT_EQ(engine.basicAuth, "Og==");
}

TEST(WriteRequestHeader, GetWithoutBody_AnnouncesLengthZero) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.clientMode = 0;
  EXPECT_TRUE(engine.writeRequestHeader(HttpMethod::Get, "http://host/a?b", 0, "", true, {}));
  EXPECT_EQ(peer.writes(), (Lines{"GET /a?b HTTP/1.1\r\n", "Host: host\r\n", "Content-Length: 0\r\n",
                                  "Connection: Keep-Alive\r\n", "\r\n"}));
  EXPECT_EQ(engine.clientMode, 1);
  EXPECT_EQ(engine.bodyRemaining, 0);
}

TEST(WriteRequestHeader, EveryMethod_HasItsWord) {
  const Lines words = {"OPTIONS", "GET", "HEAD", "POST", "PUT", "DELETE", "TRACE", "CONNECT", "PATCH"};
  for (int code = 2; code <= 10; ++code) {
    const ScriptedPeer peer;
    Engine engine(peer);
    EXPECT_TRUE(engine.writeRequestHeader(static_cast<HttpMethod>(code), "h", 0, "", true, {}));
    EXPECT_EQ(peer.writes()[0], words[static_cast<std::size_t>(code - 2)] + " / HTTP/1.1\r\n");
  }
}

TEST(WriteRequestHeader, OtherMethodCode_WritesNothing) {
  for (const int code : {0, 1, 11, -1, 2147483647, -2147483647 - 1}) {
    const ScriptedPeer peer;
    Engine engine(peer);
    engine.clientMode = 0;
    EXPECT_FALSE(engine.writeRequestHeader(static_cast<HttpMethod>(code), "h", 5, "", true, {})) << code;
    EXPECT_EQ(peer.writeCalls(), 0);
    EXPECT_FALSE(peer.deleted());
    EXPECT_EQ(engine.clientMode, 0);
    EXPECT_EQ(engine.bodyRemaining, 5);
  }
}

TEST(WriteRequestHeader, ChunkedBodyWithType_AndClose) {
  const ScriptedPeer peer;
  Engine engine(peer);
  EXPECT_TRUE(engine.writeRequestHeader(HttpMethod::Post, "h:81/x", -7, "a/b", false, {}));
  EXPECT_EQ(peer.writes(), (Lines{"POST /x HTTP/1.1\r\n", "Host: h:81\r\n", "Transfer-Encoding: chunked\r\n",
                                  "Content-Type: a/b\r\n", "Connection: close\r\n", "\r\n"}));
  EXPECT_EQ(engine.bodyRemaining, -7);
}

// The stream writes of a GET for `url`.
Lines linesOf(const std::string& url, const HttpHeaders& extra, int proxyForm = 0) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.proxyForm = proxyForm;
  EXPECT_TRUE(engine.writeRequestHeader(HttpMethod::Get, url, 0, "", true, extra));
  return peer.writes();
}

TEST(WriteRequestHeader, ProxyForm_CarriesTheAbsoluteUrl) {
  for (const int form : {1, 2, -1}) {
    EXPECT_EQ(linesOf("ftp://h:81/x", {}, form)[0], "GET ftp://h:81/x HTTP/1.1\r\n");
    EXPECT_EQ(linesOf("h/x", {}, form)[0], "GET http://h/x HTTP/1.1\r\n");
  }
}

TEST(WriteRequestHeader, HostField_ReplacesTheHostButNotThePort) {
  EXPECT_EQ(linesOf("real:8080/", {{"HOST", "example"}}),
            (Lines{"GET / HTTP/1.1\r\n", "Host: example:8080\r\n", "Content-Length: 0\r\n",
                   "Connection: Keep-Alive\r\n", "\r\n"}));
  EXPECT_EQ(linesOf("real", {{"host", ""}})[1], "Host: \r\n");
}

TEST(WriteRequestHeader, HostFieldInProxyForm_LeavesTheRequestLineAlone) {
  const Lines lines = linesOf("http://real:8080/x", {{"Host", "example"}}, 1);
  EXPECT_EQ(lines[0], "GET http://real:8080/x HTTP/1.1\r\n");
  EXPECT_EQ(lines[1], "Host: example:8080\r\n");
}

TEST(WriteRequestHeader, SeveralFieldsOfTheEngines_TheLastCounts) {
  EXPECT_EQ(linesOf("real", {{"AUTHORIZATION", "a"}, {"Authorization", "b"}, {"HOST", "c"}, {"Host", "d"}}),
            (Lines{"GET / HTTP/1.1\r\n", "Host: d\r\n", "Content-Length: 0\r\n", "Authorization: b\r\n",
                   "Connection: Keep-Alive\r\n", "\r\n"}));
}

TEST(WriteRequestHeader, CredentialsAndAuthorizationField_AreBothWritten) {
  const ScriptedPeer peer;
  Engine engine(peer);
  engine.setBasicAuth("user", "pass");
  EXPECT_TRUE(engine.writeRequestHeader(HttpMethod::Get, "h", 0, "", true, {{"authorization", "Bearer x"}}));
  EXPECT_EQ(peer.writes(),
            (Lines{"GET / HTTP/1.1\r\n", "Host: h\r\n", "Content-Length: 0\r\n", "Authorization: Bearer x\r\n",
                   "Authorization: Basic dXNlcjpwYXNz\r\n", "Connection: Keep-Alive\r\n", "\r\n"}));
}

TEST(WriteRequestHeader, EmptyAuthorizationField_IsNotWritten) {
  EXPECT_EQ(linesOf("h", {{"Authorization", ""}}), linesOf("h", {}));
}

TEST(WriteRequestHeader, ExtraFields_FollowInKeyOrderWithoutTheEnginesOwn) {
  const HttpHeaders extra = {{"x-b", "2"},
                             {"X-A", ""},
                             {"Content-Length", "9"},
                             {"content-type", "x"},
                             {"Content-Encoding", "gzip"},
                             {"TRANSFER-ENCODING", "chunked"},
                             {"Connection", "Upgrade"}};
  EXPECT_EQ(linesOf("h", extra),
            (Lines{"GET / HTTP/1.1\r\n", "Host: h\r\n", "Content-Length: 0\r\n", "Connection: Keep-Alive\r\n",
                   "Connection: Upgrade\r\n", "X-A: \r\n", "x-b: 2\r\n", "\r\n"}));
}

TEST(WriteRequestHeader, EveryFailingWrite_GivesFalseAndKeepsTheStream) {
  for (int nth = 1; nth <= 10; ++nth) {
    ScriptedPeer peer;
    Engine engine(peer.failWrite(nth));
    engine.clientMode = 0;
    engine.setBasicAuth("u", "p");
    const bool sent =
        engine.writeRequestHeader(HttpMethod::Get, "h", 0, "a/b", true, {{"authorization", "x"}, {"A", "b"}});
    EXPECT_EQ(sent, nth == 10) << nth;
    EXPECT_EQ(peer.writeCalls(), sent ? 9 : nth);
    EXPECT_FALSE(peer.deleted()) << nth;
    EXPECT_EQ(engine.clientMode, sent ? 1 : 0) << nth;
  }
}

TEST(WriteRequestHeader, NoConnection_IsFalse) {
  Engine engine;
  engine.bodyRemaining = 7;
  EXPECT_FALSE(engine.writeRequestHeader(HttpMethod::Get, "h", 0, "", true, {}));
  EXPECT_EQ(engine.bodyRemaining, 7);
}

struct Exchange {
  int status = 0;
  std::string body = "left";
  std::string type = "over";
};

Exchange exchange(const ScriptedPeer& peer, const std::string& body = "", HttpMethod method = HttpMethod::Post) {
  Engine engine(peer);
  Exchange result;
  result.status = engine.request(method, "http://host:8080/x", body, "a/b", result.body, result.type, true);
  return result;
}

TEST(Request, WholeExchange_GivesStatusBodyAndType) {
  const ScriptedPeer peer("HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nContent-Length: 5\r\n\r\nhello");
  const Exchange result = exchange(peer, "body");
  EXPECT_EQ(result.status, 200);
  EXPECT_EQ(result.body, "hello");
  EXPECT_EQ(result.type, "text/html");
  EXPECT_EQ(peer.writes(), (Lines{"POST /x HTTP/1.1\r\n", "Host: host:8080\r\n", "Content-Length: 4\r\n",
                                  "Content-Type: a/b\r\n", "Connection: Keep-Alive\r\n", "\r\n", "body"}));
}

TEST(Request, NoKeepAlive_SaysClose) {
  const ScriptedPeer peer("HTTP/1.1 204 No Content\r\n\r\n");
  Engine engine(peer);
  std::string body, type;
  EXPECT_EQ(engine.request(HttpMethod::Get, "h", "", "", body, type, false), 204);
  EXPECT_EQ(peer.writes(),
            (Lines{"GET / HTTP/1.1\r\n", "Host: h\r\n", "Content-Length: 0\r\n", "Connection: close\r\n", "\r\n"}));
}

// A derived class may report a connection that cannot go on with any status.
TEST(Request, AnswerThatEndsTheConnection_IsReadOnlyWhenSuccessful) {
  struct Ending : Engine {
    using Engine::Engine;
    int readResponse(bool& keepOpen) override {
      const int status = Engine::readResponse(keepOpen);
      keepOpen = false;
      return status;
    }
  };
  for (const int status : {199, 200, 201, 298, 299, 300}) {
    Ending engine(ScriptedPeer("HTTP/1.1 " + std::to_string(status) + " x\r\nContent-Length: 5\r\n\r\nhello"));
    std::string body, type;
    EXPECT_EQ(engine.request(HttpMethod::Get, "h", "", "", body, type, true), status);
    EXPECT_EQ(body, status / 100 == 2 ? "hello" : "") << status;
  }
}

TEST(Request, AnswerThatGaveTheConnectionUp_KeepsItsStatus) {
  struct Leaving : Engine {
    using Engine::Engine;
    int readResponse(bool& keepOpen) override {
      setConnection(nullptr);
      keepOpen = false;
      return 503;
    }
  };
  Leaving engine{ScriptedPeer()};
  std::string body, type;
  EXPECT_EQ(engine.request(HttpMethod::Get, "h", "", "", body, type, true), 503);
}

TEST(Request, BodyThatCannotBeEnded_Is410) {
  struct Unending : Engine {
    using Engine::Engine;
    bool finishBody() override { return false; }
  };
  const ScriptedPeer peer("HTTP/1.1 200 OK\r\n\r\n");
  Unending engine(peer);
  std::string body, type;
  EXPECT_EQ(engine.request(HttpMethod::Get, "h", "", "", body, type, true), 410);
  EXPECT_TRUE(peer.reads().empty());
}

TEST(Request, ChunkedAnswer_IsGathered) {
  const Exchange result =
      exchange(ScriptedPeer("HTTP/1.1 201 Created\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n"));
  EXPECT_EQ(result.status, 201);
  EXPECT_EQ(result.body, "hello");
  EXPECT_EQ(result.type, "");
}

TEST(Request, AnswerWithoutType_HasAnEmptyTypeFieldAfterwards) {
  Engine engine(ScriptedPeer("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello"));
  std::string body, type;
  EXPECT_EQ(engine.request(HttpMethod::Get, "h", "", "", body, type, true), 200);
  EXPECT_EQ(
      engine.headers,
      (HttpHeaders{
          {"content-length", "5"}, {"content-type", ""}, {"http-version", "HTTP/1.1"}, {"transfer-encoding", ""}}));
}

TEST(Request, ErrorAnswer_ComesWithItsBody) {
  const Exchange result =
      exchange(ScriptedPeer("HTTP/1.1 404 Not Found\r\nContent-Type: text/plain\r\nContent-Length: 2\r\n\r\nno"));
  EXPECT_EQ(result.status, 404);
  EXPECT_EQ(result.body, "no");
  EXPECT_EQ(result.type, "text/plain");
}

TEST(Request, AnswerWithoutLength_HasNoBody) {
  const ScriptedPeer peer("HTTP/1.1 200 OK\r\n\r\nhello");
  const Exchange result = exchange(peer);
  EXPECT_EQ(result.status, 200);
  EXPECT_EQ(result.body, "");
  EXPECT_EQ(peer.unread(), 5U);
}

TEST(Request, UnreadableBody_Is410InPlaceOf200Alone) {
  const Exchange ok = exchange(ScriptedPeer("HTTP/1.1 200 OK\r\nContent-Type: t\r\nContent-Length: 5\r\n\r\nhel"));
  EXPECT_EQ(ok.status, 410);
  EXPECT_EQ(ok.body, "");
  EXPECT_EQ(ok.type, "");
  for (const int status : {201, 206, 500}) {
    const Exchange other = exchange(
        ScriptedPeer("HTTP/1.1 " + std::to_string(status) + " x\r\nContent-Type: t\r\nContent-Length: 5\r\n\r\nhel"));
    EXPECT_EQ(other.status, status);
    EXPECT_EQ(other.body + other.type, "") << status;
  }
}

TEST(Request, AnswerCutInItsHead_Is400Or408) {
  EXPECT_EQ(exchange(ScriptedPeer("")).status, 400);
  EXPECT_EQ(exchange(ScriptedPeer("HTTP/1.1 200 OK\r\nA")).status, 400);
  EXPECT_EQ(exchange(ScriptedPeer("HTTP/1.1 200 OK\r\nA", End::TimedOut)).status, 408);
  EXPECT_EQ(exchange(ScriptedPeer("GET / HTTP/1.1\r\n\r\n")).status, 400);
  EXPECT_EQ(exchange(ScriptedPeer("nonsense\r\n")).status, 400);
}

TEST(Request, AnswerCutBehindItsType_GivesNoType) {
  const std::string cut = "HTTP/1.1 500 x\r\nContent-Type: text/html\r\nContent-Length: 5\r\nX";
  for (const End end : {End::Closed, End::TimedOut}) {
    const ScriptedPeer peer(cut, end);
    const Exchange result = exchange(peer);
    EXPECT_EQ(result.status, end == End::Closed ? 400 : 408);
    EXPECT_EQ(result.body + result.type, "");
    EXPECT_EQ(peer.reads().size(), cut.size() + 1);  // no body is asked for
  }
}

TEST(Request, OtherAnswerThanAResponse_IsReadToItsEnd) {
  const Exchange result = exchange(ScriptedPeer("GET / HTTP/1.1\r\nContent-Type: t\r\nContent-Length: 2\r\n\r\nab"));
  EXPECT_EQ(result.status, 400);
  EXPECT_EQ(result.body, "ab");
  EXPECT_EQ(result.type, "t");
}

TEST(Request, EveryFailingWrite_Is410) {
  const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello";
  for (int nth = 1; nth <= 7; ++nth) {
    ScriptedPeer peer(answer);
    const Exchange result = exchange(peer.failWrite(nth), "body");
    EXPECT_EQ(result.status, 410) << nth;
    EXPECT_EQ(result.body + result.type, "") << nth;
    EXPECT_TRUE(peer.reads().empty()) << nth;
  }
}

TEST(Request, EveryFailingRead_IsReported) {
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n";
  const int headReads = static_cast<int>(head.size());
  for (int nth = 1; nth <= headReads + 1; ++nth) {
    ScriptedPeer peer(head + "hello");
    const Exchange result = exchange(peer.failRead(nth, End::Closed));
    EXPECT_EQ(result.status, nth <= headReads ? 400 : 410) << nth;
    EXPECT_EQ(result.body, "") << nth;
  }
}

TEST(Request, NoConnectionOrOtherMethod_Is410) {
  Engine engine;
  std::string body = "left", type = "over";
  EXPECT_EQ(engine.request(HttpMethod::Get, "h", "", "", body, type, true), 410);
  EXPECT_EQ(body + type, "");
  const ScriptedPeer peer("HTTP/1.1 200 OK\r\n\r\n");
  EXPECT_EQ(exchange(peer, "", HttpMethod::Response).status, 410);
  EXPECT_EQ(peer.writeCalls(), 0);
}

TEST(Request, TwoExchangesOnOneConnection_Work) {
  Engine engine(
      ScriptedPeer("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\naHTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nb"));
  std::string body, type;
  EXPECT_EQ(engine.request(HttpMethod::Get, "h", "", "", body, type, true), 200);
  EXPECT_EQ(body, "a");
  EXPECT_EQ(engine.request(HttpMethod::Get, "h", "", "", body, type, true), 200);
  EXPECT_EQ(body, "b");
}

}  // namespace
