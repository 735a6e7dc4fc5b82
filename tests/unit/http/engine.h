// The engine with its inside open to the tests, on a scripted stream.
#pragma once

#include <string>
#include <vector>

#include "http/http_proto.h"
#include "tests/support/scripted_stream.h"

class Engine : public zorhtml::HttpProto {
 public:
  Engine() = default;
  explicit Engine(const ScriptedPeer& peer) : HttpProto(peer.stream()) {}

  using HttpProto::basicAuth;
  using HttpProto::bodyRemaining;
  using HttpProto::chunkRemaining;
  using HttpProto::clientMode;
  using HttpProto::connection;
  using HttpProto::flag;
  using HttpProto::headers;
  using HttpProto::LineResult;
  using HttpProto::proxyForm;
  using HttpProto::readLine;
  using HttpProto::timeout;
};

// What readHeader gave. What it has to set holds something else before.
struct Head {
  int status = 0;
  zorhtml::HttpMethod method = zorhtml::HttpMethod::Patch;
  std::string path = "left over";
  bool keepOpen = false;
  zorhtml::HttpHeaders headers;
  int bodyRemaining = 0;
};

inline Head readHead(Engine& engine) {
  Head head;
  head.status = engine.readHeader(head.method, head.path, head.keepOpen);
  head.headers = engine.headers;
  head.bodyRemaining = engine.bodyRemaining;
  return head;
}

inline Head readHead(const ScriptedPeer& peer) {
  Engine engine(peer);
  return readHead(engine);
}

inline Head readHead(const std::string& wire) { return readHead(ScriptedPeer(wire)); }
