// Requests as they come over a connection.
#include "platform/linux/zorguiprt/request_reader.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstddef>
#include <future>
#include <string>
#include <utility>

#include "tests/unit/platform/zorguiprt/plain_client.h"

using jxplatform::Connection;
using jxplatform::kLargestBody;
using jxplatform::kLargestHead;
using jxplatform::kMostRead;
using jxplatform::Reading;
using jxplatform::Request;
using Body = jxplatform::Request::Body;

namespace {

const std::string kPost = "POST /x HTTP/1.1\r\nHost: a\r\n";
const std::string kChunked = kPost + "Transfer-Encoding: chunked\r\n\r\n";

std::string withLength(std::size_t length) { return kPost + "Content-Length: " + std::to_string(length) + "\r\n\r\n"; }

// A request whose head has `size` bytes.
std::string headOf(std::size_t size) {
  const std::string begin = "GET / HTTP/1.1\r\n";
  const std::string end = "\r\nB: c\r\n\r\n";
  const std::string field = "A: ";
  return begin + field + std::string(size - begin.size() - field.size() - end.size(), 'a') + end;
}

std::string manyFields(std::size_t size) {
  std::string head = "GET / HTTP/1.1\r\n";
  while (head.size() < size) head += "A: b\r\n";
  return head + "\r\n";
}

// A client that sends bytes, and takes what it is told meanwhile.
class RequestReaderTest : public testing::Test {
 protected:
  Reading read(const std::string& bytes) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    auto client = std::async(std::launch::async, [fd = ends[0], &bytes] {
      for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0) break;
        sent += static_cast<std::size_t>(count);
      }
      shutdown(fd, SHUT_WR);
      return readAll(fd);
    });
    Connection connection{base::Descriptor(ends[1])};
    request = Request();
    const Reading reading = readRequest(connection, request);
    connection.closeGently();
    told = client.get();
    return reading;
  }

  // The state of the body, and `expected` for what came of it.
  std::pair<Body, std::string> bodyOf(const std::string& bytes) {
    EXPECT_EQ(read(bytes), Reading::kRequest) << bytes.substr(0, 100);
    return {request.bodyState, request.body};
  }

  Request request;
  std::string told;
};

}  // namespace

TEST_F(RequestReaderTest, Head_IsReadAsItWasSent) {
  ASSERT_EQ(read("GET /a%20b?c=d HTTP/1.1\r\nHost: a:1\r\nORIGIN:\t b \r\nhost: c\r\nEmpty:\r\n\r\n"),
            Reading::kRequest);
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.target, "/a%20b?c=d");
  EXPECT_EQ(request.fields,
            (std::multimap<std::string, std::string>{{"host", "a:1"}, {"host", "c"}, {"origin", "b"}, {"empty", ""}}));
  EXPECT_EQ(request.bodyState, Body::kWhole);
  EXPECT_EQ(request.body, "");
}

TEST_F(RequestReaderTest, Version10_IsReadToo) { EXPECT_EQ(read("GET / HTTP/1.0\r\n\r\n"), Reading::kRequest); }

TEST_F(RequestReaderTest, MethodThatNobodyKnows_IsRead) {
  EXPECT_EQ(read("BREW / HTTP/1.1\r\n\r\n"), Reading::kRequest);
  EXPECT_EQ(request.method, "BREW");
}

TEST_F(RequestReaderTest, ClientThatSaysNothing_IsNoRequest) { EXPECT_EQ(read(""), Reading::kNothing); }

TEST_F(RequestReaderTest, WhatIsNoRequest_IsMalformed) {
  for (const std::string bytes :
       {"\r\n\r\n", "x\r\n\r\n", "GET /\r\n\r\n", "GET / HTTP/9.9\r\n\r\n", "GET / HTTP/1.1\r\nno colon\r\n\r\n",
        "GET / HTTP/1.1\r\nA : b\r\n\r\n", "GET  / HTTP/1.1\r\n\r\n", "GET / HTTP/1.1 \r\n\r\n",
        "G\x01T / HTTP/1.1\r\n\r\n", "GET /\x01 HTTP/1.1\r\n\r\n", "GET / HTTP/1.1\r\nContent-Length: x\r\n\r\n",
        "GET / HTTP/1.1\r\nContent-Length: 18446744073709551616\r\n\r\n",
        "GET / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n1",
        "GET / HTTP/1.1\r\nContent-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"}) {
    EXPECT_EQ(read(bytes), Reading::kMalformed) << bytes;
  }
}

TEST_F(RequestReaderTest, HeadThatStopsShort_IsMalformed) {
  const std::string head = "GET / HTTP/1.1\r\nHost: a\r\n\r\n";
  for (std::size_t size = 1; size < head.size(); ++size) {
    EXPECT_EQ(read(head.substr(0, size)), Reading::kMalformed) << size;
  }
}

TEST_F(RequestReaderTest, Head_MayHaveSoManyBytes) {
  EXPECT_EQ(read(headOf(kLargestHead)), Reading::kRequest);
  EXPECT_EQ(read(headOf(kLargestHead + 1)), Reading::kHeadTooLong);
  EXPECT_EQ(read(manyFields(kLargestHead)), Reading::kHeadTooLong);
  EXPECT_EQ(read("GET /" + std::string(kLargestHead, 'a')), Reading::kHeadTooLong);
}

TEST_F(RequestReaderTest, BodyOfAStatedLength_IsRead) {
  EXPECT_EQ(bodyOf(withLength(5) + "hello"), std::make_pair(Body::kWhole, std::string("hello")));
  EXPECT_EQ(bodyOf(withLength(5) + "hello, more"), std::make_pair(Body::kWhole, std::string("hello")));
  EXPECT_EQ(bodyOf(withLength(0)), std::make_pair(Body::kWhole, std::string()));
  EXPECT_EQ(bodyOf(withLength(6) + "hello").first, Body::kIncomplete);
  EXPECT_EQ(bodyOf(withLength(1)).first, Body::kIncomplete);
}

TEST_F(RequestReaderTest, BodyInChunks_IsRead) {
  EXPECT_EQ(bodyOf(kChunked + "5\r\nhello\r\nA;x=\"y\"\r\n0123456789\r\n0\r\nHost: b\r\n\r\n"),
            std::make_pair(Body::kWhole, std::string("hello0123456789")));
  EXPECT_EQ(request.fields.count("host"), 1U) << "what follows the body is none of the head";
  EXPECT_EQ(bodyOf(kChunked + "0\r\n\r\n"), std::make_pair(Body::kWhole, std::string()));
}

TEST_F(RequestReaderTest, BodyInChunksThatStopsShortOrIsMalformed_IsIncomplete) {
  const std::string body = "5\r\nhello\r\n0\r\n\r\n";
  for (std::size_t size = 0; size < body.size(); ++size) {
    EXPECT_EQ(bodyOf(kChunked + body.substr(0, size)).first, Body::kIncomplete) << size;
  }
  for (const std::string bytes : {"x\r\n", "-1\r\n", "5\r\nhello0\r\n\r\n", "5 5\r\nhello\r\n0\r\n\r\n"}) {
    EXPECT_EQ(bodyOf(kChunked + bytes).first, Body::kIncomplete) << bytes;
  }
}

TEST_F(RequestReaderTest, LineOfAChunkThatDoesNotEnd_IsNotKept) {
  EXPECT_EQ(bodyOf(kChunked + "1;" + std::string(10 * kLargestHead, 'x')).first, Body::kIncomplete);
}

TEST_F(RequestReaderTest, Body_MayHaveSoManyBytes) {
  const std::string body(kLargestBody, 'a');
  EXPECT_EQ(bodyOf(withLength(kLargestBody) + body), std::make_pair(Body::kWhole, body));
  EXPECT_EQ(bodyOf(withLength(kLargestBody + 1) + body + "a").first, Body::kTooLong);
  EXPECT_LE(request.body.size(), kLargestBody) << "more is kept";
  EXPECT_EQ(bodyOf(kChunked + "100001\r\n" + body + "a\r\n0\r\n\r\n").first, Body::kTooLong);
  EXPECT_EQ(bodyOf(withLength(kMostRead + 1)).first, Body::kTooLong) << "it is not waited for";
}

TEST_F(RequestReaderTest, ClientThatAsks_IsToldToSendItsBody) {
  const std::string asks = "Expect: 100-Continue\r\nContent-Length: 1\r\n\r\n";
  EXPECT_EQ(bodyOf(kPost + asks + "a"), std::make_pair(Body::kWhole, std::string("a")));
  EXPECT_EQ(told, "HTTP/1.1 100 Continue\r\n\r\n");
  EXPECT_EQ(bodyOf("POST / HTTP/1.0\r\n" + asks + "a").first, Body::kWhole);
  EXPECT_EQ(told, "") << "a client of HTTP/1.0 takes it for the answer";
  EXPECT_EQ(read("GET / HTTP/1.1\r\nExpect: 100-continue\r\n\r\n"), Reading::kRequest);
  EXPECT_EQ(told, "") << "there is no body";
  EXPECT_EQ(bodyOf(kPost + "Expect: 100-continue\r\nContent-Length: 99999999\r\n\r\n").first, Body::kTooLong);
  EXPECT_EQ(told, "") << "nobody would read it";
}
