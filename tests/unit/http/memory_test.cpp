// Every operation without memory: each of its allocations fails in turn.
#include <gtest/gtest.h>

#include <functional>

#include "tests/support/no_memory.h"
#include "tests/unit/http/engine.h"
#include "tests/unit/http/test_server.h"

namespace {

using zorhtml::HttpHeaders;
using zorhtml::HttpMethod;

const std::string kLong(100, 'x');  // fits in no string itself
const HttpHeaders kFields = {{kLong, kLong}};
const std::string kHead = "GET /" + kLong + " HTTP/1.1\r\n" + kLong + ": " + kLong + "\r\n " + kLong + "\r\n\r\n";
const std::string kAnswer =
    "HTTP/1.1 200 " + kLong + "\r\nContent-Type: " + kLong + "\r\nContent-Length: 100\r\n\r\n" + kLong;
const std::string kChunks = "64;" + kLong + "\r\n" + kLong + "\r\n0\r\n" + kLong + "\r\n\r\n";

// How many allocations succeed before the one that fails.
struct Lack {
  int successes;
  void begin() const { noMemory::once(successes); }
};

enum class Stream { Kept, Deleted, Either };

// Has `operate` run on an engine whose peer sends `input`, each time with the next allocation behind Lack::begin()
// failing, until none does. It says whether the failure was reported as stated. Returns how many allocations failed.
template <class Subject>
int failuresOf(const std::string& input, Stream after, const std::function<bool(Subject&, Lack)>& operate) {
  for (int failures = 0;; ++failures) {
    const ScriptedPeer peer(input);
    Subject subject(peer);
    const bool reported = operate(subject, Lack{failures});
    const bool met = noMemory::met();
    noMemory::after(-1);
    if (!met) return failures;
    EXPECT_TRUE(reported) << "allocation " << failures;
    EXPECT_TRUE(after == Stream::Either || peer.deleted() == (after == Stream::Deleted)) << "allocation " << failures;
  }
}

TEST(NoMemory, ReadingAHead_Is400AndDropsTheConnection) {
  const auto readHeader = [](Engine& engine, Lack lack) {
    HttpMethod method = HttpMethod::Patch;
    std::string path;
    bool keepOpen = true;
    lack.begin();
    const int status = engine.readHeader(method, path, keepOpen);
    return status == 400 && method == HttpMethod::Unknown && path.empty() && !keepOpen;
  };
  EXPECT_GT(failuresOf<Engine>(kHead, Stream::Deleted, readHeader), 10);
  const auto readResponse = [](Engine& engine, Lack lack) {
    bool keepOpen = true;
    lack.begin();
    return engine.readResponse(keepOpen) == 400 && !keepOpen;
  };
  EXPECT_GT(failuresOf<Engine>(kAnswer, Stream::Deleted, readResponse), 10);
}

TEST(NoMemory, ReadingABody_IsMinusOneAndDropsTheConnection) {
  const auto readBlock = [](Engine& engine, Lack lack) {
    char block[200];
    engine.bodyRemaining = -1;
    lack.begin();
    return engine.readBody(block, 200) == -1;
  };
  EXPECT_GT(failuresOf<Engine>(kChunks, Stream::Deleted, readBlock), 5);
  for (const int framing : {-1, 100}) {
    const auto readText = [framing](Engine& engine, Lack lack) {
      std::string text;
      engine.bodyRemaining = framing;
      lack.begin();
      return engine.readBody(text) == -1 && text.empty();
    };
    const auto readBytes = [framing](Engine& engine, Lack lack) {
      std::vector<unsigned char> bytes;
      engine.bodyRemaining = framing;
      lack.begin();
      return engine.readBody(bytes) == -1 && bytes.empty();
    };
    const std::string& body = framing < 0 ? kChunks : kLong;
    EXPECT_GT(failuresOf<Engine>(body, Stream::Deleted, readText), 1);
    EXPECT_GT(failuresOf<Engine>(body, Stream::Deleted, readBytes), 1);
  }
}

TEST(NoMemory, WritingAHead_IsFalseAndKeepsTheConnection) {
  const auto writeResponse = [](Engine& engine, Lack lack) {
    lack.begin();
    return !engine.writeResponseHeader(200, 5, kLong, true, kFields);
  };
  EXPECT_GT(failuresOf<Engine>("", Stream::Kept, writeResponse), 5);
  const auto writeRequest = [](Engine& engine, Lack lack) {
    engine.clientMode = 0;
    lack.begin();
    return !engine.writeRequestHeader(HttpMethod::Get, kLong, 5, kLong, true, kFields) && engine.clientMode == 0;
  };
  EXPECT_GT(failuresOf<Engine>("", Stream::Kept, writeRequest), 5);
}

TEST(NoMemory, WritingABody_DropsTheConnection) {
  const auto writeBody = [](Engine& engine, Lack lack) {
    engine.bodyRemaining = -1;
    lack.begin();
    return !engine.writeBody(kLong);
  };
  EXPECT_GT(failuresOf<Engine>("", Stream::Deleted, writeBody), 0);
  const auto finishBody = [](Engine& engine, Lack lack) {
    engine.bodyRemaining = -1;
    engine.clientMode = 0;
    lack.begin();
    engine.finishBody();
    return engine.connection == nullptr;
  };
  EXPECT_GT(failuresOf<Engine>("", Stream::Deleted, finishBody), 1);
}

// 400 when it lacks for the answer's head.
TEST(NoMemory, Request_Is410Or400WithNothingHandedOver) {
  const auto request = [](Engine& engine, Lack lack) {
    std::string body, type;
    lack.begin();
    const int status = engine.request(HttpMethod::Post, kLong, kLong, kLong, body, type, true);
    return (status == 410 || status == 400) && body.empty() && type.empty();
  };
  EXPECT_GT(failuresOf<Engine>(kAnswer, Stream::Either, request), 20);
}

TEST(NoMemory, Credentials_AreEmpty) {
  const auto set = [](Engine& engine, Lack lack) {
    engine.basicAuth = "old";
    lack.begin();
    engine.setBasicAuth(kLong, kLong);
    return engine.basicAuth.empty();
  };
  EXPECT_GT(failuresOf<Engine>("", Stream::Kept, set), 1);
  const auto get = [](Engine& engine, Lack lack) {
    engine.setBasicAuth(kLong, kLong);
    engine.headers["authorization"] = "Basic " + engine.basicAuth;
    std::string user, password;
    lack.begin();
    engine.getBasicAuth(user, password);
    return user.empty() && password.empty();
  };
  EXPECT_GT(failuresOf<Engine>("", Stream::Kept, get), 3);
}

TEST(NoMemory, Replies_AreFalse) {
  const auto reply = [](TestServer& server, Lack lack) {
    lack.begin();
    return !server.sendResponse(200, kLong, kLong, kFields);
  };
  EXPECT_GT(failuresOf<TestServer>("", Stream::Either, reply), 5);
  const auto missing = [](TestServer& server, Lack lack) {
    lack.begin();
    return !server.sendFile(200, "/nonexistent", "", true, {});
  };
  EXPECT_GT(failuresOf<TestServer>("", Stream::Kept, missing), 1);
}

TEST(NoMemory, ConnectionLoop_Ends) {
  const auto run = [](TestServer& server, Lack lack) {
    server.headers["a field of an earlier request"] = "";
    lack.begin();
    return server.run() == 0;
  };
  EXPECT_GT(failuresOf<TestServer>(kHead, Stream::Either, run), 20);
}

}  // namespace
