#include "platform/linux/support/connect.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace jxplatform {

namespace {

// Shared by the caller and the thread; the later of the two lets it go.
struct LookUp {
  base::Descriptor done{eventfd(0, EFD_CLOEXEC)};
  std::mutex mutex;
  AddressList addresses;
};

void run(const std::shared_ptr<LookUp>& shared, const std::string& host, unsigned short port) {
  AddressList found;
  try {
    found = resolve(host, port, 0);
  } catch (const std::bad_alloc&) {
    found = nullptr;  // reported as a name without an address
  }
  const std::lock_guard<std::mutex> lock(shared->mutex);
  shared->addresses = std::move(found);
  eventfd_write(shared->done.get(), 1);
}

// Null with errno set. A numeric address is never looked up.
AddressList lookUp(const std::string& host, unsigned short port, const base::Deadline& deadline, int breakFd) {
  if (AddressList numeric = resolve(host, port, AI_NUMERICHOST)) return numeric;
  const auto shared = std::make_shared<LookUp>();
  if (!shared->done) return nullptr;
  try {
    std::thread(run, shared, host, port).detach();
  } catch (const std::system_error&) {
    errno = EAGAIN;
    return nullptr;
  }
  if (const int error = waitReady(shared->done.get(), POLLIN, deadline, breakFd); error != 0) {
    errno = error;
    return nullptr;
  }
  const std::lock_guard<std::mutex> lock(shared->mutex);
  if (!shared->addresses) errno = EHOSTUNREACH;
  return std::move(shared->addresses);
}

// The error of a connection attempt that has ended one way or the other; 0 is success.
int outcomeOf(int fd) {
  int error = 0;
  socklen_t length = sizeof error;
  return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

// A connected descriptor, or none with errno set.
base::Descriptor connectToOne(const addrinfo& address, const base::Deadline& deadline, int breakFd) {
  base::Descriptor made(socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!made) return made;
  int error = connect(made.get(), address.ai_addr, address.ai_addrlen) == 0 ? 0 : errno;
  if (error == EINPROGRESS || error == EINTR) {
    error = waitReady(made.get(), POLLOUT, deadline, breakFd);
    if (error == 0) error = outcomeOf(made.get());
  }
  if (error == 0) return made;
  errno = error;
  return {};
}

int countOf(const addrinfo* list) {
  int count = 0;
  for (; list != nullptr; list = list->ai_next) ++count;
  return count;
}

// So that an address that swallows packets does not use up the time of the next.
base::Descriptor connectToAny(const addrinfo* list, const base::Deadline& deadline, int breakFd) {
  base::Descriptor made;
  for (int left = countOf(list); list != nullptr && !made; list = list->ai_next, --left) {
    const int timeoutMs = deadline.remainingMs();
    made = connectToOne(*list, base::Deadline(timeoutMs < 0 ? -1 : timeoutMs / left), breakFd);
    if (!made && errno == ECANCELED) return made;
  }
  if (!made && deadline.passed()) errno = ETIMEDOUT;
  return made;
}

}  // namespace

int waitReady(int fd, short events, const base::Deadline& deadline, int breakFd) {
  for (;;) {
    std::array<pollfd, 2> entries{{{fd, events, 0}, {breakFd, POLLIN, 0}}};
    const int count = poll(entries.data(), entries.size(), deadline.remainingMs());
    if (count > 0) return entries[1].revents != 0 ? ECANCELED : 0;
    if (count < 0 && errno != EINTR) return errno;
    if (count == 0 && deadline.passed()) return ETIMEDOUT;
  }
}

AddressList resolve(const std::string& host, unsigned short port, int flags) {
  addrinfo wanted{};
  wanted.ai_family = AF_UNSPEC;
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = flags | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &wanted, &found) != 0) return nullptr;
  return AddressList(found);
}

base::Descriptor connectTo(const std::string& host, unsigned short port, const base::Deadline& deadline, int breakFd) {
  const AddressList addresses = lookUp(host, port, deadline, breakFd);
  return addresses == nullptr ? base::Descriptor() : connectToAny(addresses.get(), deadline, breakFd);
}

}  // namespace jxplatform
