#include "platform/linux/zorguiprt/client_stream.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace jxplatform {

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

}  // namespace jxplatform
