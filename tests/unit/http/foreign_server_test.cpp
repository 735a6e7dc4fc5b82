// The client against a server that is not ours: Python's http.server.
#include <gtest/gtest.h>
#include <zoripc.h>

#include <cstdio>
#include <memory>
#include <string>

#include "http/http_proto.h"

namespace {

using zorhtml::HttpMethod;

// Answers `sys.argv[1]` connections and ends; a connection that does not come ends it too.
constexpr char kScript[] = R"(
import http.server, sys
class Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass
    def answer(self, status, body, kind):
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)
    def do_GET(self):
        if self.path == "/chunked":
            self.send_response(200)
            self.send_header("Content-Type", "text/parts")
            self.send_header("Transfer-Encoding", "chunked")
            self.end_headers()
            for part in (b"one ", b"x" * 70000, b" end"):
                self.wfile.write(b"%X\r\n%s\r\n" % (len(part), part))
            self.wfile.write(b"0\r\n\r\n")
        elif self.path == "/who":
            self.answer(200, self.headers["Authorization"].encode(), "text/plain")
        else:
            self.answer(404, b"no such page", "text/plain")
    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        self.answer(200, self.path.encode() + b" " + body, self.headers["Content-Type"])
Handler.protocol_version = sys.argv[2]
server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
server.timeout = 60
print(server.server_port, flush=True)
for _ in range(int(sys.argv[1])):
    server.handle_request()
)";

class ForeignServer {
 public:
  ForeignServer(int connections, const std::string& version) {
    const std::string command =
        "exec python3 -B -c '" + std::string(kScript) + "' " + std::to_string(connections) + " " + version;
    output_ = popen(command.c_str(), "r");
    EXPECT_NE(output_, nullptr);
    char line[16] = "";
    EXPECT_NE(std::fgets(line, sizeof line, output_), nullptr);
    port_ = static_cast<unsigned short>(std::stoi(line));
  }
  ForeignServer(const ForeignServer&) = delete;
  ForeignServer& operator=(const ForeignServer&) = delete;
  ~ForeignServer() { EXPECT_EQ(pclose(output_), 0); }

  zoripc::IPC* connect() const {
    auto stream = std::make_unique<zoripc::TCP>();
    EXPECT_TRUE(stream->connect("127.0.0.1", port_, 60000));
    return stream.release();
  }

 private:
  std::FILE* output_ = nullptr;
  unsigned short port_ = 0;
};

class ForeignServerTest : public testing::TestWithParam<const char*> {};

TEST_P(ForeignServerTest, Answers_AreRead) {
  const ForeignServer server(3, GetParam());
  std::string body, type;
  zorhtml::HttpProto missing(server.connect());
  EXPECT_EQ(missing.request(HttpMethod::Get, "http://localhost/none", "", "", body, type, false), 404);
  EXPECT_EQ(body, "no such page");
  EXPECT_EQ(type, "text/plain");
  const std::string sent(300000, 'x');
  zorhtml::HttpProto posting(server.connect());
  EXPECT_EQ(posting.request(HttpMethod::Post, "localhost/p?q", sent, "a/b", body, type, false), 200);
  EXPECT_TRUE(body == "/p?q " + sent);
  EXPECT_EQ(type, "a/b");
  zorhtml::HttpProto known(server.connect());
  known.setBasicAuth("user", "pass");
  EXPECT_EQ(known.request(HttpMethod::Get, "/who", "", "", body, type, false), 200);
  EXPECT_EQ(body, "Basic dXNlcjpwYXNz");
}

INSTANTIATE_TEST_SUITE_P(EachVersion, ForeignServerTest, testing::Values("HTTP/1.0", "HTTP/1.1"));

TEST(ForeignServer, ChunkedAnswer_IsGathered) {
  const ForeignServer server(1, "HTTP/1.1");
  zorhtml::HttpProto client(server.connect());
  std::string body, type;
  EXPECT_EQ(client.request(HttpMethod::Get, "/chunked", "", "", body, type, false), 200);
  EXPECT_TRUE(body == "one " + std::string(70000, 'x') + " end");
  EXPECT_EQ(type, "text/parts");
}

TEST(ForeignServer, SeveralRequests_UseOneConnection) {
  const ForeignServer server(1, "HTTP/1.1");
  zorhtml::HttpProto client(server.connect());
  std::string body, type;
  for (const char* text : {"one", "", "three"}) {
    EXPECT_EQ(client.request(HttpMethod::Post, "/p", text, "t/t", body, type, true), 200);
    EXPECT_EQ(body, "/p " + std::string(text));
  }
}

}  // namespace
