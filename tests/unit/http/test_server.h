// A server object that answers with what it was asked, with its inside open to the tests.
#pragma once

#include <string>
#include <vector>

#include "http/http_thread.h"
#include "tests/support/scripted_stream.h"

class TestServer : public zorhtml::HttpThread {
 public:
  TestServer() = default;
  explicit TestServer(const ScriptedPeer& peer) { setConnection(peer.stream()); }

  using HttpThread::bodyRemaining;
  using HttpThread::buffer;
  using HttpThread::chunkRemaining;
  using HttpThread::clientMode;
  using HttpThread::connection;
  using HttpThread::consumeBuffer;
  using HttpThread::fill;
  using HttpThread::fillBuffer;
  using HttpThread::flag;
  using HttpThread::headers;
  using HttpThread::proxyForm;
  using HttpThread::timeout;

  bool doGET(const std::string& path) override { return sendResponse(200, "GET " + path, "", {}); }
  bool doPOST(const std::string& path) override {
    std::string body;
    if (readBody(body) < 0) return false;
    return sendResponse(200, "POST " + path + " " + body, "", {});
  }
};
