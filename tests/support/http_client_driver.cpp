// One exchange of the HTTP client, from the command line.
//
// Usage: http_client_driver METHOD-CODE ADDRESS PORT PATH TYPE [USER PASSWORD]
//
// Sends what stands on standard input as the body. Prints the status, the answer's type and its body, a line each for
// the first two.
#include <zoripc.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "http/http_proto.h"

namespace {

constexpr int kConnectMs = 30000;

std::string readInput() {
  std::string text;
  char block[4096];
  for (std::size_t count = 0; (count = std::fread(block, 1, sizeof block, stdin)) > 0;) text.append(block, count);
  return text;
}

int numberOf(const char* text) { return static_cast<int>(std::strtol(text, nullptr, 10)); }

int run(char** argv, bool credentials) {
  auto stream = std::make_unique<zoripc::TCP>();
  if (!stream->connect(argv[2], static_cast<unsigned short>(numberOf(argv[3])), kConnectMs)) {
    std::perror(argv[2]);
    return 1;
  }
  zorhtml::HttpProto client(stream.release());
  if (credentials) client.setBasicAuth(argv[6], argv[7]);
  const std::string url = "http://localhost:" + std::string(argv[3]) + argv[4];
  const auto method = static_cast<zorhtml::HttpMethod>(numberOf(argv[1]));
  std::string body;
  std::string type;
  const int status = client.request(method, url, readInput(), argv[5], body, type, false);
  std::printf("%d\n%s\n", status, type.c_str());
  std::fwrite(body.data(), 1, body.size(), stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6 && argc != 8) return 2;
  return run(argv, argc == 8);
}
