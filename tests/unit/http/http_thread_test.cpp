#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "tests/unit/http/test_server.h"

namespace {

using End = ScriptedPeer::End;

// What the connection loop writes for `input`.
std::string answersTo(const std::string& input, End end = End::Closed) {
  const ScriptedPeer peer(input, end);
  TestServer server(peer);
  EXPECT_EQ(server.run(), 0);
  return peer.written();
}

const std::string kKeep = "Connection: Keep-Alive\r\n\r\n";

std::string answer(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + kKeep + body;
}

std::string refusal(const std::string& status, const std::string& version = "") {
  return version + " " + status + "\r\nContent-Length: 0\r\nContent-Type: text/plain\r\n" + kKeep;
}

TEST(ConnectionLoop, KeepAliveRequests_AreServedInTurn) {
  EXPECT_EQ(
      answersTo("GET /a HTTP/1.1\r\nConnection: keep-alive\r\n\r\nGET /b HTTP/1.1\r\nConnection: keep-alive\r\n\r\n",
                End::TimedOut),
      answer("GET /a") + answer("GET /b") + refusal("408 Request Time-out"));
}

TEST(ConnectionLoop, RequestWithoutTheField_EndsAfterItsReply) {
  EXPECT_EQ(
      answersTo("GET /a HTTP/1.1\r\nConnection: keep-alive\r\n\r\nGET /b HTTP/1.1\r\n\r\nGET /c HTTP/1.1\r\n\r\n"),
      answer("GET /a") + answer("GET /b"));
}

TEST(ConnectionLoop, OnlyTheExactWordInAnyCase_KeepsTheConnection) {
  const std::string rest = "GET /b HTTP/1.1\r\n\r\n";
  for (const char* value : {"keep-alive", "Keep-Alive", "KEEP-ALIVE", "  Keep-Alive "}) {
    EXPECT_EQ(answersTo("GET /a HTTP/1.1\r\nConnection:" + std::string(value) + "\r\n\r\n" + rest),
              answer("GET /a") + answer("GET /b"))
        << value;
  }
  for (const char* value : {"", "close", "keep-alive, TE", "Keep-Alive, Upgrade", "keepalive"}) {
    EXPECT_EQ(answersTo("GET /a HTTP/1.1\r\nConnection: " + std::string(value) + "\r\n\r\n" + rest), answer("GET /a"))
        << value;
  }
}

TEST(ConnectionLoop, RequestWithoutTheField_HasItEmptyAfterItsHandler) {
  struct Watching : TestServer {
    using TestServer::TestServer;
    bool doGET(const std::string&) override { return seen = headers, true; }
    zorhtml::HttpHeaders seen;
  };
  Watching server(ScriptedPeer("GET /a HTTP/1.1\r\nContent-Length: 0\r\n\r\n"));
  EXPECT_EQ(server.run(), 0);
  zorhtml::HttpHeaders fields = {{"content-length", "0"}, {"http-version", "HTTP/1.1"}, {"transfer-encoding", ""}};
  EXPECT_EQ(server.seen, fields);
  fields["connection"] = "";
  EXPECT_EQ(server.headers, fields);
}

// As a derived class that reads requests in a way of its own sees it.
TEST(ConnectionLoop, EachRequest_IsReadIntoAnEmptyPathAndServedFor200Alone) {
  struct Reading : TestServer {
    using TestServer::TestServer;
    int readRequest(zorhtml::HttpMethod& method, std::string& path) override {
      given.push_back(path);
      method = zorhtml::HttpMethod::Get;
      path = "/" + std::to_string(given.size());
      const bool last = given.size() == 3;
      headers = {{"connection", last ? "close" : "keep-alive"}, {"http-version", "HTTP/1.1"}};
      return last ? 201 : 200;
    }
    std::vector<std::string> given;
  };
  const ScriptedPeer peer;
  Reading server(peer);
  EXPECT_EQ(server.run(), 0);
  EXPECT_EQ(server.given, (std::vector<std::string>{"", "", ""}));
  EXPECT_EQ(peer.written(), answer("GET /1") + answer("GET /2") + refusal("201 Created", "HTTP/1.1"));
}

TEST(ConnectionLoop, PostBody_IsReadByTheHandler) {
  EXPECT_EQ(
      answersTo("POST /p HTTP/1.1\r\nConnection: keep-alive\r\nContent-Length: 5\r\n\r\nhelloGET /b HTTP/1.1\r\n\r\n"),
      answer("POST /p hello") + answer("GET /b"));
}

TEST(ConnectionLoop, Reply_HasTheVersionOfTheRequest) {
  EXPECT_EQ(answersTo("GET /a\r\n\r\n").substr(0, 15), "HTTP/1.0 200 OK");
}

TEST(ConnectionLoop, MethodWithoutHandler_IsMetWithSilence) {
  for (const char* method : {"OPTIONS", "PUT", "DELETE", "TRACE", "CONNECT", "PATCH"}) {
    const std::string request = std::string(method) + " /x HTTP/1.1\r\n";
    EXPECT_EQ(answersTo(request + "Connection: keep-alive\r\n\r\nGET /b HTTP/1.1\r\n\r\n"), answer("GET /b")) << method;
    EXPECT_EQ(answersTo(request + "\r\nGET /b HTTP/1.1\r\n\r\n"), "") << method;
  }
}

TEST(ConnectionLoop, BodyThatNobodyRead_IsTakenAsTheNextRequest) {
  EXPECT_EQ(
      answersTo(
          "PUT /x HTTP/1.1\r\nConnection: keep-alive\r\nContent-Length: 6\r\n\r\njunk\r\nGET /b HTTP/1.1\r\n\r\n"),
      refusal("400 Bad Request"));
}

TEST(ConnectionLoop, Head_IsRefusedAndTheConnectionGoesOn) {
  EXPECT_EQ(answersTo("HEAD /x HTTP/1.1\r\nConnection: keep-alive\r\n\r\nGET /b HTTP/1.1\r\n\r\n"),
            refusal("405 Method Not Allowed", "HTTP/1.1") + answer("GET /b"));
}

TEST(ConnectionLoop, BadRequest_IsAnsweredWithKeepAliveAndEnds) {
  const std::string rest = "GET /b HTTP/1.1\r\nConnection: keep-alive\r\n\r\n";
  for (const char* line : {"get / HTTP/1.1", "GET / HTTP/1.1 extra", "GET", ""}) {
    EXPECT_EQ(answersTo(std::string(line) + "\r\n" + rest), refusal("400 Bad Request")) << line;
  }
  EXPECT_EQ(answersTo("HTTP/1.1 200 OK\r\n\r\n" + rest), refusal("400 Bad Request", "HTTP/1.1"));
  EXPECT_EQ(answersTo("GET / HTTP/1.1\r\nA: b"), refusal("400 Bad Request", "HTTP/1.1"));
}

TEST(ConnectionLoop, PeerThatLeaves_IsAnsweredAllTheSame) {
  EXPECT_EQ(answersTo(""), refusal("400 Bad Request"));
  EXPECT_EQ(answersTo("GET /a HTTP/1.1\r\nConnection: keep-alive\r\n\r\n"),
            answer("GET /a") + refusal("400 Bad Request"));
}

TEST(ConnectionLoop, Silence_IsA408) {
  EXPECT_EQ(answersTo("", End::TimedOut), refusal("408 Request Time-out"));
  EXPECT_EQ(answersTo("GET / HTT", End::TimedOut), refusal("408 Request Time-out"));
  EXPECT_EQ(answersTo("GET / HTTP/1.1\r\n", End::TimedOut), refusal("408 Request Time-out", "HTTP/1.1"));
}

TEST(ConnectionLoop, NoConnection_IsA410ThatCannotBeWritten) {
  struct Watched : TestServer {
    bool sendResponse(int status, const std::string& body, const std::string& type,
                      const zorhtml::HttpHeaders& extra) override {
      const bool sent = TestServer::sendResponse(status, body, type, extra);
      replies.push_back(std::to_string(status) + "," + body + "," + type + "," + std::to_string(extra.size()) +
                        (sent ? " sent" : " not sent"));
      return sent;
    }
    std::vector<std::string> replies;
  };
  Watched server;
  EXPECT_EQ(server.run(), 0);
  EXPECT_EQ(server.replies, std::vector<std::string>{"410,,text/plain,0 not sent"});
}

TEST(ConnectionLoop, HandlerThatGivesFalse_EndsWithoutWriting) {
  struct Refusing : TestServer {
    using TestServer::TestServer;
    bool doGET(const std::string&) override { return false; }
    bool doPOST(const std::string&) override { return false; }
    bool doHEAD(const std::string&) override { return false; }
  };
  const std::string next = "GET /b HTTP/1.1\r\n\r\n";
  for (const char* method : {"GET", "POST", "HEAD"}) {
    const ScriptedPeer peer(std::string(method) + " /a HTTP/1.1\r\nConnection: keep-alive\r\n\r\n" + next);
    Refusing server(peer);
    EXPECT_EQ(server.run(), 0);
    EXPECT_EQ(peer.writeCalls(), 0) << method;
    EXPECT_EQ(peer.unread(), next.size()) << method;
    EXPECT_FALSE(peer.deleted()) << method;
  }
}

TEST(ConnectionLoop, HandlerThatDropsTheConnection_EndsWithoutAReply) {
  EXPECT_EQ(answersTo("POST /p HTTP/1.1\r\nConnection: keep-alive\r\nContent-Length: 5\r\n\r\nhel"), "");
}

TEST(ConnectionLoop, EveryFailingWrite_Ends) {
  for (int nth = 1; nth <= 4; ++nth) {
    ScriptedPeer peer("GET /a HTTP/1.1\r\nConnection: keep-alive\r\n\r\nGET /b HTTP/1.1\r\n\r\n");
    TestServer server(peer.failWrite(nth));
    EXPECT_EQ(server.run(), 0);
    EXPECT_EQ(peer.writeCalls(), nth) << nth;
  }
}

TEST(ConnectionLoop, EveryFailingRead_EndsWithItsRefusal) {
  const std::string request = "POST /a HTTP/1.1\r\nContent-Length: 5\r\n\r\n";
  for (int nth = 1; nth <= static_cast<int>(request.size()); ++nth) {
    ScriptedPeer peer(request + "hello");
    TestServer server(peer.failRead(nth));
    EXPECT_EQ(server.run(), 0);
    EXPECT_NE(peer.written().find(" 408 Request Time-out\r\n"), std::string::npos) << nth;
  }
}

template <class Exception>
struct Throwing : TestServer {
  using TestServer::TestServer;
  bool doGET(const std::string&) override { throw Exception(); }
};

template <class Exception>
void expectDropped() {
  const ScriptedPeer peer("GET /a HTTP/1.1\r\nConnection: keep-alive\r\n\r\nGET /b HTTP/1.1\r\n\r\n");
  Throwing<Exception> server(peer);
  EXPECT_EQ(server.run(), 0);
  EXPECT_TRUE(peer.deleted());
  EXPECT_EQ(peer.writeCalls(), 0);
}

struct NoStandardException {};

TEST(ConnectionLoop, AnyException_DropsTheConnectionAlone) {
  expectDropped<std::bad_alloc>();
  expectDropped<NoStandardException>();
}

// Serves a first request on a thread that `end` ends in its handler.
template <class End>
void expectThreadEnds(End end) {
  struct Ending : TestServer {
    Ending(const ScriptedPeer& peer, End given) : TestServer(peer), end_(given) {}
    bool doGET(const std::string&) override {
      end_();
      return true;
    }
    End end_;
  };
  const ScriptedPeer peer("GET /a HTTP/1.1\r\nConnection: keep-alive\r\n\r\nPOST /b HTTP/1.1\r\n\r\n");
  { const zorhtml::ThreadControl joined(new Ending(peer, end), false); }
  EXPECT_TRUE(peer.deleted());
  EXPECT_EQ(peer.writeCalls(), 0);
}

TEST(ConnectionLoop, HandlerThatEndsItsThread_ClosesTheConnectionAlone) {
  expectThreadEnds([] { pthread_exit(nullptr); });
  expectThreadEnds([] {
    pthread_cancel(pthread_self());
    pthread_testcancel();
  });
}

TEST(SendResponse, EmptyBodyAndType_WriteNoLength) {
  const ScriptedPeer peer;
  TestServer server(peer);
  server.headers["http-version"] = "HTTP/1.1";
  EXPECT_TRUE(server.sendResponse(204, "", "", {}));
  EXPECT_EQ(peer.written(), "HTTP/1.1 204 No Content\r\n" + kKeep);
}

TEST(SendResponse, BodyTypeAndFields_AreWritten) {
  const ScriptedPeer peer;
  TestServer server(peer);
  server.headers["http-version"] = "HTTP/1.1";
  EXPECT_TRUE(server.sendResponse(200, "hello", "a/b", {{"X", "y"}}));
  EXPECT_EQ(peer.written(),
            "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Type: a/b\r\nConnection: Keep-Alive\r\nX: y\r\n\r\nhello");
}

TEST(SendResponseClose, Reply_SaysClose) {
  const ScriptedPeer peer;
  TestServer server(peer);
  server.headers["http-version"] = "HTTP/1.1";
  EXPECT_TRUE(server.sendResponseClose(200, "hello", "a/b", {{"X", "y"}}));
  EXPECT_EQ(peer.written(),
            "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Type: a/b\r\nConnection: close\r\nX: y\r\n\r\nhello");
  EXPECT_FALSE(peer.deleted());
}

// Ends bodies with a result of its own.
struct Finishing : TestServer {
  Finishing(const ScriptedPeer& peer, bool given) : TestServer(peer), result(given) {}
  bool finishBody() override { return ++finished, result; }
  bool reply(bool close) {
    return close ? sendResponseClose(200, "hello", "a/b", {}) : sendResponse(200, "hello", "a/b", {});
  }
  bool result;
  int finished = 0;
};

TEST(SendResponse, EveryFailingWrite_IsFalseAndEndsTheReplyAndABodyCloses) {
  for (const bool close : {false, true}) {
    for (int nth = 1; nth <= 6; ++nth) {
      ScriptedPeer peer;
      Finishing server(peer.failWrite(nth), true);
      EXPECT_FALSE(server.reply(close)) << nth;
      EXPECT_EQ(server.finished, 0) << nth;
      EXPECT_EQ(peer.deleted(), nth == 6) << nth;
    }
  }
}

TEST(SendResponse, ResultOfFinishBody_IsItsOwn) {
  for (const bool result : {false, true}) {
    for (const bool close : {false, true}) {
      Finishing server(ScriptedPeer(), result);
      EXPECT_EQ(server.reply(close), result);
      EXPECT_EQ(server.finished, 1);
    }
  }
}

TEST(DoHead, EveryFailingWrite_IsFalse) {
  for (int nth = 1; nth <= 5; ++nth) {
    ScriptedPeer peer;
    TestServer server(peer.failWrite(nth));
    EXPECT_FALSE(server.doHEAD("/")) << nth;
    EXPECT_FALSE(peer.deleted()) << nth;
  }
}

}  // namespace
