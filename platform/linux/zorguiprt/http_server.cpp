#include "platform/linux/zorguiprt/http_server.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <thread>

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

}  // namespace

ClientStream::ClientStream(socket_t socket) : socket_(socket), readEnd_(Clock::now() + kWhole) {}

bool ClientStream::waitFor(short events, Clock::time_point end) const {
  end = std::min(end, Clock::now() + kSilence);
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0) return false;
    pollfd entry{socket_, events, 0};
    const int count = poll(&entry, 1, static_cast<int>(left.count()));
    if (count > 0) return true;
    if (count < 0 && errno != EINTR) return false;
  }
}

bool ClientStream::is_readable() const { return begin_ < end_ || waitFor(POLLIN, readEnd_); }

// Asked before each piece of the answer; whether the client takes it shows when it is written.
bool ClientStream::is_writable() const { return true; }

ssize_t ClientStream::receive(char* data, size_t size) {
  while (waitFor(POLLIN, readEnd_)) {
    const ssize_t count = recv(socket_, data, size, MSG_DONTWAIT);
    if (count >= 0 || (errno != EINTR && errno != EAGAIN)) return count;
  }
  return -1;
}

ssize_t ClientStream::read(char* data, size_t size) {
  if (begin_ == end_) {
    const ssize_t count = receive(buffer_, sizeof buffer_);
    if (count <= 0) return count;
    begin_ = 0;
    end_ = static_cast<std::size_t>(count);
  }
  const std::size_t count = std::min(size, end_ - begin_);
  std::copy_n(buffer_ + begin_, count, data);
  begin_ += count;
  return static_cast<ssize_t>(count);
}

ssize_t ClientStream::write(const char* data, size_t size) {
  if (writeEnd_ == Clock::time_point{}) writeEnd_ = Clock::now() + kWhole;
  while (waitFor(POLLOUT, writeEnd_)) {
    const ssize_t count = send(socket_, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count >= 0 || (errno != EINTR && errno != EAGAIN)) return count;
  }
  return -1;
}

// Nothing here asks who the client is.
void ClientStream::get_remote_ip_and_port(std::string& ip, int& port) const {
  ip.clear();
  port = 0;
}

void ClientStream::get_local_ip_and_port(std::string& ip, int& port) const {
  ip.clear();
  port = 0;
}

HttpServer::~HttpServer() { end(); }

void HttpServer::raiseBacklog() { ::listen(svr_sock_, SOMAXCONN); }

// Without memory to begin with it begins a little later; whoever connects meanwhile waits.
void HttpServer::serve() {
  while (svr_sock_ != INVALID_SOCKET) {
    try {
      // Ended by end(), or by an error after which the library has closed the listener itself.
      if (!listen_after_bind()) svr_sock_ = INVALID_SOCKET;
      return;
    } catch (const std::exception&) {
      std::this_thread::sleep_for(kShortagePause);
    }
  }
}

// The library's own stop() would do nothing before the serving has begun.
void HttpServer::end() {
  const socket_t socket = svr_sock_.exchange(INVALID_SOCKET);
  if (socket == INVALID_SOCKET) return;
  shutdown(socket, SHUT_RDWR);
  close(socket);
}

bool HttpServer::process_and_close_socket(socket_t socket) {
  bool served = false;
  try {
    ClientStream stream(socket);
    bool closed = false;
    served = process_request(stream, true, closed, nullptr);
  } catch (const std::exception&) {
    // There was no memory for an answer: the client sees the connection end without one.
  }
  closeGently(socket);
  return served;
}

}  // namespace jxplatform
