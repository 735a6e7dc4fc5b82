#include <gtest/gtest.h>

#include "tests/unit/http/engine.h"

namespace {

using zorhtml::HttpMethod;
using End = ScriptedPeer::End;

TEST(ReadLine, LineFeed_EndsALine) {
  Engine engine(ScriptedPeer("one\r\n\ntwo\n"));
  std::string line = "old";
  EXPECT_EQ(engine.readLine(line), Engine::LineResult::kComplete);
  EXPECT_EQ(line, "one");
  EXPECT_EQ(engine.readLine(line), Engine::LineResult::kComplete);
  EXPECT_EQ(line, "");
  EXPECT_EQ(engine.readLine(line), Engine::LineResult::kComplete);
  EXPECT_EQ(line, "two");
}

TEST(ReadLine, CarriageReturnsAlone_AreDroppedAnywhere) {
  std::string bytes, expected;
  for (int value = 255; value >= 0; --value) {
    if (value != '\n') bytes += static_cast<char>(value);
    if (value != '\n' && value != '\r') expected += static_cast<char>(value);
  }
  Engine engine(ScriptedPeer("\r" + bytes + "\r\r\n"));
  std::string line;
  EXPECT_EQ(engine.readLine(line), Engine::LineResult::kComplete);
  EXPECT_EQ(line, expected);
}

TEST(ReadLine, EndOfStreamOrSilence_KeepsThePartialLine) {
  std::string line;
  Engine closed(ScriptedPeer("par", End::Closed));
  EXPECT_EQ(closed.readLine(line), Engine::LineResult::kClosed);
  EXPECT_EQ(line, "par");
  Engine silent(ScriptedPeer("ti", End::TimedOut));
  EXPECT_EQ(silent.readLine(line), Engine::LineResult::kTimedOut);
  EXPECT_EQ(line, "ti");
  Engine failed(ScriptedPeer("al", End::Failed));
  EXPECT_EQ(failed.readLine(line), Engine::LineResult::kTimedOut);
  EXPECT_EQ(line, "al");
}

TEST(ReadLine, NoConnection_IsItsOwnResultAndKeepsTheLine) {
  Engine engine;
  std::string line = "old";
  EXPECT_EQ(engine.readLine(line), Engine::LineResult::kNoConnection);
  EXPECT_EQ(line, "old");
  EXPECT_EQ(static_cast<int>(Engine::LineResult::kComplete), 0);
  EXPECT_EQ(static_cast<int>(Engine::LineResult::kClosed), 1);
  EXPECT_EQ(static_cast<int>(Engine::LineResult::kTimedOut), 2);
  EXPECT_EQ(static_cast<int>(Engine::LineResult::kNoConnection), 3);
}

TEST(ReadLine, EachByte_IsOneExactReadWithTheTimeout) {
  const ScriptedPeer peer("ab\n");
  Engine engine(peer);
  engine.timeout = 1234;
  std::string line;
  engine.readLine(line);
  ASSERT_EQ(peer.reads().size(), 3U);
  for (const auto& read : peer.reads()) {
    EXPECT_EQ(read.size, 1U);
    EXPECT_TRUE(read.exact);
    EXPECT_EQ(read.timeoutMs, 1234);
    EXPECT_EQ(read.gapTimeoutMs, -1);
  }
}

TEST(ReadLine, MegabyteLine_IsReadWhole) {
  Engine engine(ScriptedPeer(std::string(1 << 20, 'a') + "\n"));
  std::string line;
  EXPECT_EQ(engine.readLine(line), Engine::LineResult::kComplete);
  EXPECT_EQ(line.size(), 1U << 20);
}

TEST(RequestHead, EachMethodWord_HasItsCode) {
  const std::pair<const char*, int> words[] = {{"OPTIONS", 2}, {"GET", 3},   {"HEAD", 4},    {"POST", 5},  {"PUT", 6},
                                               {"DELETE", 7},  {"TRACE", 8}, {"CONNECT", 9}, {"PATCH", 10}};
  for (const auto& [word, code] : words) {
    const Head head = readHead(std::string(word) + " /x HTTP/1.1\r\n\r\n");
    EXPECT_EQ(head.status, 200) << word;
    EXPECT_EQ(static_cast<int>(head.method), code) << word;
    EXPECT_EQ(head.path, "/x") << word;
    EXPECT_TRUE(head.keepOpen) << word;
  }
}

TEST(RequestHead, UnknownFirstWord_Is400AndKeepsOpen) {
  for (const char* word : {"get", "Get", "GETX", "PROPFIND", "HTTP/2.0", "HTTP/1.10", "http/1.1", "HTTP/0.9"}) {
    for (const char* rest : {" /", " / HTTP/1.1", " / HTTP/1.1 x"}) {
      const Head head = readHead(word + (rest + std::string("\r\nA: b\r\n\r\n")));
      EXPECT_EQ(head.status, 400) << word << rest;
      EXPECT_EQ(static_cast<int>(head.method), 0) << word << rest;
      EXPECT_EQ(head.path, "") << word << rest;
      EXPECT_TRUE(head.keepOpen) << word << rest;
      EXPECT_TRUE(head.headers.empty()) << word << rest;
    }
  }
}

TEST(RequestHead, FewerThanTwoWords_Is400AndKeepsOpen) {
  for (const char* line : {"\r\n", "GET\r\n", "  \t \n", "HTTP/1.1 \r\n"}) {
    const Head head = readHead(line);
    EXPECT_EQ(head.status, 400) << line;
    EXPECT_EQ(head.method, HttpMethod::Unknown) << line;
    EXPECT_TRUE(head.keepOpen) << line;
  }
}

TEST(RequestHead, FourOrMoreWords_Are400AndEndTheConnection) {
  for (const char* line : {"GET / HTTP/1.1 x", "GET / HTTP/1.1 x y", "GET a b c d e f"}) {
    const ScriptedPeer peer(line + std::string("\r\nA: b\r\n\r\n"));
    const Head head = readHead(peer);
    EXPECT_EQ(head.status, 400) << line;
    EXPECT_EQ(head.method, HttpMethod::Get) << line;
    EXPECT_FALSE(head.keepOpen) << line;
    EXPECT_EQ(head.path, "") << line;
    EXPECT_TRUE(head.headers.empty()) << line;
    EXPECT_EQ(peer.unread(), std::string("A: b\r\n\r\n").size()) << line;
  }
}

TEST(RequestHead, StartLineThatFails_LeavesNoOldField) {
  for (const char* wire : {"", "GET", "GET\n", "get /\n", "GET / a b\n"}) {
    Engine engine{ScriptedPeer(wire)};
    engine.headers["a"] = "1";
    EXPECT_TRUE(readHead(engine).headers.empty()) << wire;
  }
}

TEST(RequestHead, TwoWords_AreHttp10) {
  const Head head = readHead("GET /\r\n\r\n");
  EXPECT_EQ(head.status, 200);
  EXPECT_EQ(head.headers.at("http-version"), "HTTP/1.0");
}

TEST(RequestHead, ThirdWord_IsTheVersionAsReceived) {
  EXPECT_EQ(readHead("GET / HTTP/1.1\r\n\r\n").headers.at("http-version"), "HTTP/1.1");
  EXPECT_EQ(readHead("GET / HTTP/2.0\r\n\r\n").headers.at("http-version"), "HTTP/2.0");
  EXPECT_EQ(readHead("GET / FOO\r\n\r\n").headers.at("http-version"), "FOO");
}

TEST(RequestHead, RunsOfBlanks_SeparateTheWords) {
  const Head head = readHead("  GET \t /a   HTTP/1.1  \r\n\r\n");
  EXPECT_EQ(head.status, 200);
  EXPECT_EQ(head.path, "/a");
  EXPECT_EQ(head.headers.at("http-version"), "HTTP/1.1");
}

TEST(RequestHead, Target_IsNormalised) { EXPECT_EQ(readHead("GET %2e%2e/%2541\\b?c\\d X\n\n").path, "/__/A/b?c\\d"); }

TEST(RequestHead, Fields_AreStoredWithLowerCaseKeysAndTrimmedValues) {
  const Head head = readHead("GET / HTTP/1.1\r\nHost: a:80 \r\nX-Empty:\r\nACCEPT:\t*/*\r\n\r\n");
  const zorhtml::HttpHeaders expected = {
      {"http-version", "HTTP/1.1"}, {"host", "a:80"},      {"x-empty", ""}, {"accept", "*/*"},
      {"transfer-encoding", ""},    {"content-length", ""}};
  EXPECT_EQ(head.headers, expected);
}

TEST(RequestHead, KeyBeforeTheColon_IsNotTrimmed) {
  const Head head = readHead("GET / HTTP/1.1\r\nHost : a\r\n:b\r\n\r\n");
  EXPECT_EQ(head.headers.at("host "), "a");
  EXPECT_EQ(head.headers.at(""), "b");
  EXPECT_EQ(head.headers.count("host"), 0U);
}

TEST(RequestHead, RepeatedField_TheLastOneWins) {
  EXPECT_EQ(readHead("GET / HTTP/1.1\r\nA: 1\r\na: 2\r\n\r\n").headers.at("a"), "2");
  EXPECT_EQ(readHead("GET / HTTP/1.1\r\nContent-Length: 5\r\nContent-Length: 7\r\n\r\n").bodyRemaining, 7);
}

TEST(RequestHead, LineWithoutColon_IsDropped) {
  const Head head = readHead("GET / HTTP/1.1\r\nnonsense\r\nA: 1\r\n\r\n");
  EXPECT_EQ(head.status, 200);
  EXPECT_EQ(head.headers.size(), 4U);
  EXPECT_EQ(head.headers.at("a"), "1");
}

TEST(RequestHead, ContinuationLines_KeepTheirLeadingSpace) {
  EXPECT_EQ(readHead("GET / HTTP/1.1\r\nX-A: 1\r\n 2\r\n\t3 \r\nB: c\r\n\r\n").headers.at("x-a"), "1 2\t3");
  EXPECT_EQ(readHead("GET / HTTP/1.1\r\nX-A:\r\n  2\r\n\r\n").headers.at("x-a"), "2");
}

TEST(RequestHead, OtherWhiteSpaceInFront_BeginsALine) {
  const Head head = readHead("GET / HTTP/1.1\r\nX-A: 1\r\n\vX-B: 2\r\n\fX-C: 3\r\n\r\n");
  EXPECT_EQ(head.headers.at("x-a"), "1");
  EXPECT_EQ(head.headers.at("\vx-b"), "2");
  EXPECT_EQ(head.headers.at("\fx-c"), "3");
}

TEST(RequestHead, ContinuationOfALineWithoutColon_CanMakeItAField) {
  EXPECT_EQ(readHead("GET / HTTP/1.1\r\nX-A\r\n : 2\r\n\r\n").headers.at("x-a "), "2");
}

TEST(RequestHead, ContinuationAsFirstLine_IsALineOfItsOwn) {
  EXPECT_EQ(readHead("GET / HTTP/1.1\r\n X-A: 2\r\n\r\n").headers.at(" x-a"), "2");
}

TEST(RequestHead, BlankLineOfSpaces_IsAContinuationAndNotTheEnd) {
  const Head head = readHead("GET / HTTP/1.1\r\nA: 1\r\n \r\nB: 2\r\n\r\n");
  EXPECT_EQ(head.status, 200);
  EXPECT_EQ(head.headers.at("a"), "1");
  EXPECT_EQ(head.headers.at("b"), "2");
}

TEST(RequestHead, CarriageReturnInsideALine_Vanishes) {
  EXPECT_EQ(readHead("G\rET / HTTP/1.1\r\nA: 1\r2\r\n\r\n").headers.at("a"), "12");
}

TEST(RequestHead, BareLineFeeds_AreAccepted) { EXPECT_EQ(readHead("GET / HTTP/1.1\nA: 1\n\n").headers.at("a"), "1"); }

TEST(RequestHead, FieldNamedHttpVersion_OverwritesTheVersion) {
  EXPECT_EQ(readHead("GET / HTTP/1.1\r\nHTTP-Version: X\r\n\r\n").headers.at("http-version"), "X");
}

TEST(RequestHead, ContentLength_IsTheBody) {
  EXPECT_EQ(readHead("POST / HTTP/1.1\r\nContent-Length: 5\r\n\r\n").bodyRemaining, 5);
  EXPECT_EQ(readHead("POST / HTTP/1.1\r\nContent-Length: 0\r\n\r\n").bodyRemaining, 0);
  EXPECT_EQ(readHead("POST / HTTP/1.1\r\n\r\n").bodyRemaining, 0);
}

TEST(RequestHead, OddContentLengths_AreReadAsASignedNumber) {
  EXPECT_EQ(readHead("POST / HTTP/1.1\r\nContent-Length: abc\r\n\r\n").bodyRemaining, 0);
  EXPECT_EQ(readHead("POST / HTTP/1.1\r\nContent-Length: 12abc\r\n\r\n").bodyRemaining, 12);
  EXPECT_EQ(readHead("POST / HTTP/1.1\r\nContent-Length: -3\r\n\r\n").bodyRemaining, -3);
  EXPECT_EQ(readHead("POST / HTTP/1.1\r\nContent-Length: 4294967301\r\n\r\n").bodyRemaining, 2147483647);
  EXPECT_EQ(readHead("POST / HTTP/1.1\r\nContent-Length: -4294967301\r\n\r\n").bodyRemaining, -2147483647 - 1);
}

TEST(RequestHead, ChunkedAnywhereInTransferEncoding_GoesBeforeContentLength) {
  for (const char* value : {"chunked", "gzip, Chunked", "CHUNKED;q=1", "unchunkedly"}) {
    const Head head =
        readHead("POST / HTTP/1.1\r\nContent-Length: 5\r\nTransfer-Encoding: " + std::string(value) + "\r\n\r\n");
    EXPECT_EQ(head.bodyRemaining, -1) << value;
    EXPECT_EQ(head.headers.at("content-length"), "5") << value;
  }
}

TEST(RequestHead, ChunkedBody_InsertsNoContentLength) {
  const Head head = readHead("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n");
  EXPECT_EQ(head.bodyRemaining, -1);
  EXPECT_EQ(head.headers.count("content-length"), 0U);
}

TEST(RequestHead, OtherTransferEncoding_LeavesTheLength) {
  for (const char* value : {"", "gzip", "chunke", "chunk-ed"}) {
    EXPECT_EQ(readHead("POST / HTTP/1.1\r\nTransfer-Encoding: " + std::string(value) + "\r\nContent-Length: 5\r\n\r\n")
                  .bodyRemaining,
              5)
        << value;
  }
}

const std::string kRequest = "POST /a%20b?c HTTP/1.1\r\nHost: x\r\nX-A: 1\r\n 2\r\nContent-Length: 5\r\n\r\n";

// A head that fails at `cut` keeps what its start line gave, if that was whole.
void expectStartLine(const Head& head, std::size_t cut) {
  const bool whole = cut > kRequest.find('\n');
  EXPECT_EQ(head.method, whole ? HttpMethod::Post : HttpMethod::Unknown) << cut;
  EXPECT_EQ(head.path, whole ? "/a b?c" : "") << cut;
  EXPECT_EQ(head.headers.count("http-version"), whole ? 1U : 0U) << cut;
}

TEST(RequestHead, CutAnywhereByTheEnd_Is400) {
  for (std::size_t cut = 0; cut < kRequest.size(); ++cut) {
    const ScriptedPeer peer(kRequest.substr(0, cut), End::Closed);
    Engine engine(peer);
    const Head head = readHead(engine);
    EXPECT_EQ(head.status, 400) << cut;
    EXPECT_FALSE(head.keepOpen) << cut;
    EXPECT_EQ(head.bodyRemaining, 0) << cut;
    EXPECT_FALSE(peer.deleted()) << cut;
    expectStartLine(head, cut);
  }
}

TEST(RequestHead, SilenceAnywhere_Is408) {
  for (std::size_t cut = 0; cut < kRequest.size(); ++cut) {
    for (const End end : {End::TimedOut, End::Failed}) {
      const Head head = readHead(ScriptedPeer(kRequest.substr(0, cut), end));
      EXPECT_EQ(head.status, 408) << cut;
      EXPECT_FALSE(head.keepOpen) << cut;
      expectStartLine(head, cut);
    }
  }
}

TEST(RequestHead, SilenceAnywhere_EndsTheReadingBeforeWhatFollows) {
  for (std::size_t cut = 0; cut < kRequest.size(); ++cut) {
    ScriptedPeer peer(kRequest.substr(0, cut));
    const Head head = readHead(peer.pause().send(kRequest.substr(cut)));
    EXPECT_EQ(head.status, 408) << cut;
    EXPECT_EQ(peer.unread(), kRequest.size() - cut) << cut;
  }
}

TEST(RequestHead, SilenceBehindTheHead_IsNotMet) {
  ScriptedPeer peer(kRequest);
  const Head head = readHead(peer.pause().send("hello"));
  EXPECT_EQ(head.status, 200);
  EXPECT_EQ(head.path, "/a b?c");
  EXPECT_EQ(head.headers.at("x-a"), "1 2");
  EXPECT_EQ(head.bodyRemaining, 5);
  EXPECT_EQ(peer.reads().size(), kRequest.size());
}

TEST(RequestHead, CutField_IsNotStored) {
  const Head head = readHead(ScriptedPeer("GET / HTTP/1.1\r\nA: 1\r\nB: 2\r\n", End::Closed));
  EXPECT_EQ(head.headers.at("a"), "1");
  EXPECT_EQ(head.headers.count("b"), 0U);
  EXPECT_EQ(head.headers.count("content-length"), 0U);
}

TEST(RequestHead, NoConnection_Is410AndKeepsTheOldFields) {
  Engine engine;
  engine.headers["a"] = "1";
  engine.bodyRemaining = 7;
  engine.chunkRemaining = 7;
  const Head head = readHead(engine);
  EXPECT_EQ(head.status, 410);
  EXPECT_EQ(head.method, HttpMethod::Unknown);
  EXPECT_EQ(head.path, "");
  EXPECT_TRUE(head.keepOpen);
  EXPECT_EQ(head.bodyRemaining, 0);
  EXPECT_EQ(engine.chunkRemaining, 0);
  EXPECT_EQ(head.headers.at("a"), "1");
}

TEST(RequestHead, NextMessage_ResetsEverything) {
  Engine engine(ScriptedPeer("POST /a HTTP/1.1\r\nA: 1\r\nTransfer-Encoding: chunked\r\n\r\nGET /b\r\n\r\n"));
  readHead(engine);
  engine.chunkRemaining = 9;
  const Head head = readHead(engine);
  EXPECT_EQ(head.status, 200);
  EXPECT_EQ(head.path, "/b");
  EXPECT_EQ(head.bodyRemaining, 0);
  EXPECT_EQ(engine.chunkRemaining, 0);
  EXPECT_EQ(head.headers.count("a"), 0U);
}

TEST(ReadRequest, Request_EndsClientMode) {
  Engine engine(ScriptedPeer("GET /a HTTP/1.1\r\n\r\n"));
  HttpMethod method = HttpMethod::Unknown;
  std::string path;
  EXPECT_EQ(engine.clientMode, 1);
  EXPECT_EQ(engine.readRequest(method, path), 200);
  EXPECT_EQ(method, HttpMethod::Get);
  EXPECT_EQ(path, "/a");
  EXPECT_EQ(engine.clientMode, 0);
}

TEST(ReadRequest, Failure_EndsClientModeToo) {
  HttpMethod method = HttpMethod::Unknown;
  std::string path;
  Engine silent(ScriptedPeer("", End::TimedOut));
  EXPECT_EQ(silent.readRequest(method, path), 408);
  EXPECT_EQ(silent.clientMode, 0);
  for (const char* wire : {"", "get /\n", "GET / a b\n", "GET /\nA"}) {
    Engine malformed{ScriptedPeer(wire)};
    EXPECT_EQ(malformed.readRequest(method, path), 400) << wire;
    EXPECT_EQ(malformed.clientMode, 0) << wire;
  }
  Engine unconnected;
  EXPECT_EQ(unconnected.readRequest(method, path), 410);
  EXPECT_EQ(unconnected.clientMode, 0);
}

TEST(ReadRequest, Response_Is400AndStaysInClientMode) {
  for (const char* wire : {"HTTP/1.1 200 OK\r\n\r\n", "HTTP/1.1 200 OK\r\nsilence"}) {
    Engine engine(ScriptedPeer(wire, End::TimedOut));
    HttpMethod method = HttpMethod::Unknown;
    std::string path;
    EXPECT_EQ(engine.readRequest(method, path), 400) << wire;
    EXPECT_EQ(method, HttpMethod::Response) << wire;
    EXPECT_EQ(engine.clientMode, 1) << wire;
  }
}

}  // namespace
