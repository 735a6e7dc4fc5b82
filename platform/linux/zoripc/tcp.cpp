#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <new>
#include <utility>

#include "platform/linux/zoripc/tcp_impl.h"

namespace zoripc {

void setNoDelay(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// Without memory the object is one that has failed: its makers need no exception for it.
TCP::TCP() : impl_(new (std::nothrow) Impl) {}

TCP::TCP(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

TCP::~TCP() = default;

int TCP::getFD() const { return impl_ ? impl_->fd() : -1; }

bool TCP::readExact(void* data, std::size_t size, int timeoutMs, int gapTimeoutMs) {
  return impl_ && impl_->stream.readExact(data, size, timeoutMs, gapTimeoutMs);
}

std::size_t TCP::read(void* data, std::size_t size, int timeoutMs) {
  return impl_ ? impl_->stream.read(data, size, timeoutMs) : 0;
}

bool TCP::write(const void* data, std::size_t size) { return impl_ && impl_->stream.write(data, size); }

bool TCP::closed() const { return impl_ && impl_->stream.closed(); }

bool TCP::failed() const { return !impl_ || impl_->stream.failed(); }

}  // namespace zoripc
