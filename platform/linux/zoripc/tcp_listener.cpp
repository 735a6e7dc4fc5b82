#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "platform/linux/support/connect.h"
#include "platform/linux/zoripc/socket_address.h"
#include "platform/linux/zoripc/tcp_impl.h"

namespace zoripc {

namespace {

// How long an accept that fails for want of something waits: the connection stays in the queue, so that the caller's
// next poll reports it again at once.
constexpr int kShortageMs = 100;

// A descriptor that listens, or none with errno set.
base::Descriptor listenAt(const sockaddr* address, socklen_t length) {
  base::Descriptor made(socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!made) return made;
  const int fd = made.get();
  const int on = 1;
  const int off = 0;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  setNoDelay(fd);  // which the accepted connections inherit
  if (address->sa_family == AF_INET6) setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
  if (bind(fd, address, length) == 0 && ::listen(fd, SOMAXCONN) == 0) return made;
  return {};
}

base::Descriptor listenEverywhere(unsigned short port) {
  sockaddr_in6 six{};
  six.sin6_family = AF_INET6;
  six.sin6_port = htons(port);
  base::Descriptor made = listenAt(reinterpret_cast<const sockaddr*>(&six), sizeof six);
  if (made || (errno != EAFNOSUPPORT && errno != EADDRNOTAVAIL)) return made;
  sockaddr_in four{};
  four.sin_family = AF_INET;
  four.sin_port = htons(port);
  return listenAt(reinterpret_cast<const sockaddr*>(&four), sizeof four);
}

base::Descriptor listenOn(const char* address, unsigned short port) {
  const jxplatform::AddressList found = jxplatform::resolve(address, port, AI_NUMERICHOST | AI_PASSIVE);
  if (found != nullptr) return listenAt(found->ai_addr, found->ai_addrlen);
  errno = EINVAL;
  return {};
}

bool isShortage(int error) { return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM; }

// The listener is in order and the next accept may succeed: nothing is there, a signal came, or the error belongs to a
// connection that is gone already.
bool isPassing(int error) {
  switch (error) {
    case EAGAIN:
    case EINTR:
    case ECONNABORTED:
    case EPROTO:
    case EPERM:
    case ENETDOWN:
    case ENETUNREACH:
    case ENOPROTOOPT:
    case EHOSTDOWN:
    case ENONET:
    case EHOSTUNREACH:
    case EOPNOTSUPP:
      return true;
    default:
      return false;
  }
}

// A connected descriptor, or none with errno set. Without time everything that is there already gets its turn.
base::Descriptor acceptWithin(int listening, int timeoutMs) {
  const base::Deadline deadline(timeoutMs);
  for (;;) {
    base::Descriptor made(accept4(listening, nullptr, nullptr, SOCK_CLOEXEC));
    if (made || !isPassing(errno)) return made;
    const bool nothingThere = errno == EAGAIN;
    const int leftMs = deadline.remainingMs();
    if (leftMs == 0 && (nothingThere || timeoutMs > 0)) return made;
    pollfd entry{listening, POLLIN, 0};
    if (nothingThere) poll(&entry, 1, leftMs);
  }
}

void waitOutShortage() { poll(nullptr, 0, kShortageMs); }

}  // namespace

int TCP::listen(unsigned short port, const char* address) {
  if (impl_ == nullptr) {
    errno = ENOMEM;
    return 0;
  }
  impl_->listening = {};
  impl_->stream.reset({});
  try {
    impl_->listening = address == nullptr ? listenEverywhere(port) : listenOn(address, port);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  }
  return impl_->listening ? 1 : 0;
}

IPC* TCP::accept(int timeoutMs) {
  if (impl_ == nullptr) return nullptr;
  base::Descriptor made = acceptWithin(impl_->listening.get(), timeoutMs);
  if (!made) {
    if (isShortage(errno)) waitOutShortage();
    return nullptr;
  }
  try {
    auto connection = std::make_unique<Impl>();
    std::unique_ptr<TCP> stream(new TCP(std::move(connection)));
    stream->impl_->stream.reset(std::move(made));
    stream->impl_->stream.waitInReads();
    return stream.release();
  } catch (const std::bad_alloc&) {
    made = {};
    waitOutShortage();
    return nullptr;
  }
}

std::string TCP::localAddress() const {
  try {
    return getFD() >= 0 ? localAddressOf(getFD()) : "";
  } catch (const std::bad_alloc&) {
    return "";
  }
}

}  // namespace zoripc
