#include "platform/linux/zorguiprt/http_server.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <string>
#include <thread>
#include <utility>

#include "platform/linux/zorguiprt/client_stream.h"

namespace jxplatform {
namespace {

constexpr std::chrono::milliseconds kFarewell{500};
constexpr std::chrono::milliseconds kShortagePause{100};

// Closes so that the answer arrives even when the client has sent more than was read: bytes left unread would reset the
// connection and take the answer with it.
void closeGently(socket_t socket) {
  shutdown(socket, SHUT_WR);
  const auto end = std::chrono::steady_clock::now() + kFarewell;
  char discarded[4096];
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    pollfd entry{socket, POLLIN, 0};
    if (left.count() <= 0 || poll(&entry, 1, static_cast<int>(left.count())) <= 0) break;
    if (recv(socket, discarded, sizeof discarded, MSG_DONTWAIT) <= 0) break;
  }
  close(socket);
}

// A client in memory that has sent one request and takes any answer.
class OneRequest : public httplib::Stream {
 public:
  explicit OneRequest(std::string request) : request_(std::move(request)) {}
  bool is_readable() const override { return true; }
  bool is_writable() const override { return true; }
  ssize_t read(char* data, size_t size) override {
    const std::size_t count = request_.copy(data, size, read_);
    read_ += count;
    return static_cast<ssize_t>(count);
  }
  ssize_t write(const char* /*data*/, size_t size) override { return static_cast<ssize_t>(size); }
  void get_remote_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
  void get_local_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
  socket_t socket() const override { return INVALID_SOCKET; }

 private:
  const std::string request_;
  std::size_t read_ = 0;
};

}  // namespace

class HttpServer::Served {
 public:
  Served(HttpServer& server, socket_t socket) : server_(server), socket_(socket) {
    const std::lock_guard<std::mutex> lock(server_.servedMutex_);
    server_.served_.insert(socket_);
    if (server_.brokenOff_) shutdown(socket_, SHUT_RDWR);
  }
  ~Served() {
    const std::lock_guard<std::mutex> lock(server_.servedMutex_);
    server_.served_.erase(socket_);
  }
  Served(const Served&) = delete;
  Served& operator=(const Served&) = delete;

 private:
  HttpServer& server_;
  const socket_t socket_;
};

HttpServer::~HttpServer() {
  const socket_t listener = svr_sock_;
  if (listener != INVALID_SOCKET) close(listener);
}

void HttpServer::warmUp() {
  OneRequest request("GET / HTTP/1.1\r\nRange: bytes=0-0\r\n\r\n");
  bool closed = false;
  HttpServer().process_request(request, true, closed, nullptr);
}

void HttpServer::raiseBacklog() { ::listen(svr_sock_, SOMAXCONN); }

void HttpServer::serve(ConnectionThreads& threads) {
  while (!ended_) {
    const socket_t socket = accept4(svr_sock_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket >= 0) {
      if (!threads.run([this, socket] { answer(socket); })) close(socket);
    } else if (!ended_ && errno != EINTR && errno != ECONNABORTED) {
      std::this_thread::sleep_for(kShortagePause);
    }
  }
}

// The listener is closed by the destructor alone: accept4() might otherwise meet another file under its number.
void HttpServer::end() {
  ended_ = true;
  shutdown(svr_sock_, SHUT_RDWR);
}

void HttpServer::breakOff() {
  const std::lock_guard<std::mutex> lock(servedMutex_);
  brokenOff_ = true;
  for (const socket_t socket : served_) shutdown(socket, SHUT_RDWR);
}

void HttpServer::answer(socket_t socket) {
  try {
    const Served counted(*this, socket);
    ClientStream stream(socket);
    bool closed = false;
    process_request(stream, true, closed, nullptr);
  } catch (const std::exception&) {
    // There was no memory for an answer: the client sees the connection end without one.
  }
  closeGently(socket);
}

}  // namespace jxplatform
