// Any bytes as a request to the screen, sent to its server over a connection, and as the texts that it reads from
// requests: each request is answered, and the server lives. "localhost:6380" in the input stands for the server's own
// name.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <memory>

#include "base/ignore.h"
#include "fuzz/input.h"
#include "platform/linux/zorguiprt/screen_json.h"
#include "platform/linux/zorguiprt/screen_server.h"

namespace {

const std::string kNameInInput = "localhost:6380";

// The page's number is above every one that a request can ask for, so that no request waits for a newer page.
class Terminal {
 public:
  Terminal()
      : screen_([] { return std::numeric_limits<std::uint64_t>::max(); }),
        server_(screen_, jxplatform::PageFiles(jxplatform::pagesFolder()), "fuzz") {
    screen_.showAsynchronous({"result.html", {{"text", "<b>"}}, "<p>"}, nullptr, nullptr);
    server_.start({"127.0.0.1", 0});
    const std::size_t colon = server_.url().rfind(':');
    port_ = static_cast<std::uint16_t>(std::stoi(server_.url().substr(colon + 1)));
  }

  std::uint16_t port() const { return port_; }

 private:
  jxplatform::Screen screen_;
  jxplatform::ScreenServer server_;
  std::uint16_t port_ = 0;
};

std::string withTheServersName(std::string text, std::uint16_t port) {
  const std::string name = "localhost:" + std::to_string(port);
  for (std::size_t at = 0; (at = text.find(kNameInInput, at)) != std::string::npos; at += name.size()) {
    text.replace(at, kNameInInput.size(), name);
  }
  return text;
}

std::string answerOf(std::uint16_t port, const std::string& request) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  require(fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
  // What the server does not want to read any more it does not take, and that is its right.
  base::ignore(send(fd, request.data(), request.size(), MSG_NOSIGNAL));
  shutdown(fd, SHUT_WR);
  std::string answer;
  char block[4096];
  ssize_t got = 0;
  // The fuzzer's clock interrupts; a leak is looked for after each input, so the server has to be done with it.
  while ((got = recv(fd, block, sizeof block, 0)) > 0 || (got < 0 && errno == EINTR)) {
    if (got > 0) answer.append(block, static_cast<std::size_t>(got));
  }
  close(fd);
  return answer;
}

void readTexts(const std::string& text) {
  try {
    base::ignore(jxplatform::parseResult(text));
  } catch (const jxplatform::Failure& failure) {
    require(*failure.what() != '\0');
  }
  const auto number = jxplatform::parseNumber(text);
  require(!number || *number <= jxplatform::kLargestId);
  if (const auto address = jxplatform::parseServerAddress(text)) {
    require(address->port >= 0 && address->port <= 65535);
    if (address->port != 0) {
      const jxplatform::OwnNames names(*address);
      require(names.isOwnHost("localhost:" + std::to_string(address->port)));
      require(!names.isOwnHost("example.com:" + std::to_string(address->port)));
    }
  }
  const jxplatform::OwnNames names({"127.0.0.1", 6380});
  if (names.isOwnHost(text)) require(text.find("6380") != std::string::npos);
  if (names.isOwnOrigin(text)) require(text.compare(0, 4, "http") == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Terminal terminal;
  const std::string text(reinterpret_cast<const char*>(data), size);
  readTexts(text);
  const std::string request = withTheServersName(text, terminal.port());
  const std::string answer = answerOf(terminal.port(), request);
  require(request.empty() ? answer.empty() : answer.compare(0, 9, "HTTP/1.1 ") == 0);
  return 0;
}
