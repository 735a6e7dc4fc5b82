#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <exception>

#include "platform/linux/zoripc/name_lookup.h"
#include "platform/linux/zoripc/tcp_impl.h"

namespace zoripc {

namespace {

// The error of a connection attempt that has ended one way or the other; 0 is success.
int outcomeOf(int fd) {
  int error = 0;
  socklen_t length = sizeof error;
  return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

int waitConnected(int fd, const base::Deadline& deadline) {
  for (;;) {
    pollfd entry{fd, POLLOUT, 0};
    const int timeoutMs = deadline.remainingMs();
    const int count = poll(&entry, 1, timeoutMs);
    if (count > 0) return outcomeOf(fd);
    if (count < 0 && errno != EINTR) return errno;
    if (count == 0 && deadline.passed()) return ETIMEDOUT;
  }
}

// A connected descriptor, or -1 with errno set.
int connectTo(const addrinfo& address, const base::Deadline& deadline) {
  const int fd = socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return -1;
  int error = ::connect(fd, address.ai_addr, address.ai_addrlen) == 0 ? 0 : errno;
  if (error == EINPROGRESS || error == EINTR) error = waitConnected(fd, deadline);
  if (error == 0) return fd;
  close(fd);
  errno = error;
  return -1;
}

int countOf(const addrinfo* list) {
  int count = 0;
  for (; list != nullptr; list = list->ai_next) ++count;
  return count;
}

// Each address gets an equal share of the time that is left when its turn comes, so that one that swallows packets
// does not use up the time of the next.
int connectToAny(const addrinfo* list, const base::Deadline& deadline) {
  int fd = -1;
  for (int left = countOf(list); list != nullptr && fd < 0; list = list->ai_next, --left) {
    const int timeoutMs = deadline.remainingMs();
    fd = connectTo(*list, base::Deadline(timeoutMs < 0 ? -1 : timeoutMs / left));
  }
  if (fd < 0 && deadline.passed()) errno = ETIMEDOUT;
  return fd;
}

int connectWithin(const char* host, unsigned short port, int timeoutMs) {
  const base::Deadline deadline(timeoutMs);
  const AddressList addresses = lookUp(host, port, deadline);
  return addresses == nullptr ? -1 : connectToAny(addresses.get(), deadline);
}

}  // namespace

bool TCP::connect(const char* host, unsigned short port, int timeoutMs) {
  impl_->stopListening();
  impl_->stream.reset(-1);
  if (host == nullptr || *host == '\0') {
    errno = EHOSTUNREACH;
    return false;
  }
  try {
    const int fd = connectWithin(host, port, timeoutMs);
    if (fd < 0) return false;
    setNoDelay(fd);
    impl_->stream.reset(fd);
    return true;
  } catch (const std::exception&) {
    errno = ENOMEM;
    return false;
  }
}

}  // namespace zoripc
