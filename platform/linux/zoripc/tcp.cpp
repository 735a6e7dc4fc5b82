#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "platform/linux/zoripc/tcp_impl.h"

namespace zoripc {

void TCP::Impl::stopListening() {
  if (listening >= 0) close(listening);
  listening = -1;
}

void setNoDelay(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

TCP::TCP() : impl_(std::make_unique<Impl>()) {}

TCP::TCP(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

TCP::~TCP() = default;

int TCP::getFD() const { return impl_->fd(); }

bool TCP::readExact(void* data, std::size_t size, int timeoutMs, int gapTimeoutMs) {
  return impl_->stream.readExact(data, size, timeoutMs, gapTimeoutMs);
}

std::size_t TCP::read(void* data, std::size_t size, int timeoutMs) { return impl_->stream.read(data, size, timeoutMs); }

bool TCP::write(const void* data, std::size_t size) { return impl_->stream.write(data, size); }

bool TCP::closed() const { return impl_->stream.closed(); }

bool TCP::failed() const { return impl_->stream.failed(); }

}  // namespace zoripc
