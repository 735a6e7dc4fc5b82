// The engine reaches its own operations through their slots, so that a derived class can replace each step.
#include <gtest/gtest.h>

#include "tests/unit/http/engine.h"
#include "tests/unit/http/tracer.h"

namespace {

using zorhtml::HttpMethod;

// The operations that `call` reaches, with a stream that reads `input`.
template <class Call>
Trace callsOf(const std::string& input, Call call) {
  Trace trace;
  const ScriptedPeer peer(input);
  Tracer tracer(trace, peer);
  call(tracer);
  Trace calls = trace;
  return calls;
}

TEST(SlotCalls, ReadRequestAndReadResponse_CallReadHeader) {
  HttpMethod method = HttpMethod::Unknown;
  std::string path;
  bool keepOpen = false;
  EXPECT_EQ(callsOf("GET /\n\n", [&](Tracer& t) { t.readRequest(method, path); }),
            (Trace{"readRequest", "readHeader"}));
  EXPECT_EQ(callsOf("HTTP/1.1 200\n\n", [&](Tracer& t) { t.readResponse(keepOpen); }),
            (Trace{"readResponse", "readHeader"}));
}

TEST(SlotCalls, WholeFixedBody_CallsTheBufferFormOnce) {
  std::string text;
  std::vector<unsigned char> bytes;
  const auto announce = [](Tracer& t) { t.bodyRemaining = 5; };
  EXPECT_EQ(callsOf("hello", [&](Tracer& t) { announce(t), t.readBody(text); }),
            (Trace{"readBody string", "readBody buffer"}));
  EXPECT_EQ(callsOf("hello", [&](Tracer& t) { announce(t), t.readBody(bytes); }),
            (Trace{"readBody vector", "readBody buffer"}));
}

TEST(SlotCalls, WholeChunkedBody_CallsTheBufferFormUntilItIsShort) {
  std::string text;
  const std::string block = "1000\r\n" + std::string(4096, 'x') + "\r\n";
  EXPECT_EQ(callsOf(block + "0\r\n\r\n", [&](Tracer& t) { t.bodyRemaining = -1, t.readBody(text); }),
            (Trace{"readBody string", "readBody buffer", "readBody buffer"}));
  EXPECT_EQ(callsOf("1\r\nx\r\n0\r\n\r\n", [&](Tracer& t) { t.bodyRemaining = -1, t.readBody(text); }),
            (Trace{"readBody string", "readBody buffer"}));
}

TEST(SlotCalls, WriteBodyOfTextOrBytes_CallsTheBufferForm) {
  EXPECT_EQ(callsOf("", [](Tracer& t) { t.bodyRemaining = -1, t.writeBody(std::string("a")); }),
            (Trace{"writeBody string", "writeBody buffer"}));
  EXPECT_EQ(callsOf("", [](Tracer& t) { t.bodyRemaining = -1, t.writeBody(std::vector<unsigned char>(1)); }),
            (Trace{"writeBody vector", "writeBody buffer"}));
}

TEST(SlotCalls, FinishBody_PadsThroughTheBufferForm) {
  EXPECT_EQ(callsOf("", [](Tracer& t) { t.bodyRemaining = 3, t.finishBody(); }),
            (Trace{"finishBody", "writeBody buffer", "writeBody buffer"}));
}

TEST(SlotCalls, Request_CallsItsSteps) {
  std::string body, type;
  EXPECT_EQ(callsOf("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nx",
                    [&](Tracer& t) { t.request(HttpMethod::Post, "h", "b", "", body, type, true); }),
            (Trace{"request", "writeRequestHeader", "writeBody string", "writeBody buffer", "finishBody",
                   "readResponse", "readHeader", "readBody string", "readBody buffer"}));
}

TEST(SlotCalls, SendFile_CallsItsSteps) {
  EXPECT_EQ(callsOf("", [](Tracer& t) { t.sendFile(200, "/proc/self/comm", "", true, {}); }),
            (Trace{"sendFile", "writeResponseHeader", "writeBody buffer", "finishBody"}));
  EXPECT_EQ(callsOf("", [](Tracer& t) { t.sendFile(200, "/nonexistent", "", true, {}); }),
            (Trace{"sendFile", "writeResponseHeader", "finishBody"}));
}

// The string form is called directly: no derived class can intercept the body of a complete reply.
TEST(SlotCalls, SendResponse_WritesItsBodyDirectly) {
  EXPECT_EQ(callsOf("", [](Tracer& t) { t.sendResponse(200, "x", "", {}); }),
            (Trace{"sendResponse", "writeResponseHeader", "writeBody buffer", "finishBody"}));
  EXPECT_EQ(callsOf("", [](Tracer& t) { t.sendResponseClose(200, "x", "", {}); }),
            (Trace{"sendResponseClose", "writeResponseHeader", "writeBody buffer", "finishBody"}));
}

TEST(SlotCalls, DoHead_WritesAHeaderAlone) {
  EXPECT_EQ(callsOf("", [](Tracer& t) { t.doHEAD("/"); }), (Trace{"doHEAD /", "writeResponseHeader"}));
}

TEST(SlotCalls, Run_DispatchesByMethod) {
  const auto run = [](Tracer& t) { t.run(); };
  const Trace read = {"run", "readRequest", "readHeader"};
  const auto with = [&](const Trace& more) {
    Trace all = read;
    all.insert(all.end(), more.begin(), more.end());
    return all;
  };
  EXPECT_EQ(callsOf("GET /a?b X\n\n", run), with({"doGET /a?b"}));
  EXPECT_EQ(callsOf("POST /a X\n\n", run), with({"doPOST /a"}));
  EXPECT_EQ(callsOf("HEAD /a X\n\n", run), with({"doHEAD /a", "writeResponseHeader"}));
  EXPECT_EQ(callsOf("PUT /a X\n\n", run), read);
  EXPECT_EQ(callsOf("nonsense\n\n", run), with({"sendResponse", "writeResponseHeader", "finishBody"}));
  EXPECT_EQ(callsOf("GET /a X\nConnection: keep-alive\n\nGET /b X\n\n", run),
            with({"doGET /a", "readRequest", "readHeader", "doGET /b"}));
}

}  // namespace
