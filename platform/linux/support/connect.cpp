#include "platform/linux/support/connect.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace jxplatform {

namespace {

// Shared by the caller and the thread; the later of the two lets it go.
struct LookUp {
  std::mutex lock;
  std::condition_variable done;
  bool finished = false;
  AddressList addresses;
};

void run(const std::shared_ptr<LookUp>& shared, const std::string& host, unsigned short port) {
  AddressList found;
  try {
    found = resolve(host, port, 0);
  } catch (const std::bad_alloc&) {
    found = nullptr;  // reported as a name without an address
  }
  const std::lock_guard<std::mutex> hold(shared->lock);
  shared->addresses = std::move(found);
  shared->finished = true;
  shared->done.notify_one();
}

bool waitFor(LookUp& shared, std::unique_lock<std::mutex>& hold, const base::Deadline& deadline) {
  const auto finished = [&shared] { return shared.finished; };
  const int timeoutMs = deadline.remainingMs();
  if (timeoutMs >= 0) return shared.done.wait_for(hold, std::chrono::milliseconds(timeoutMs), finished);
  shared.done.wait(hold, finished);
  return true;
}

AddressList lookUp(const std::string& host, unsigned short port, const base::Deadline& deadline) {
  if (AddressList numeric = resolve(host, port, AI_NUMERICHOST)) return numeric;
  const auto shared = std::make_shared<LookUp>();
  try {
    std::thread(run, shared, host, port).detach();
  } catch (const std::system_error&) {
    errno = EAGAIN;
    return nullptr;
  }
  std::unique_lock<std::mutex> hold(shared->lock);
  const bool inTime = waitFor(*shared, hold, deadline);
  if (!inTime) {
    errno = ETIMEDOUT;
    return nullptr;
  }
  if (!shared->addresses) errno = EHOSTUNREACH;
  return std::move(shared->addresses);
}

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

// A connected descriptor, or none with errno set.
base::Descriptor connectToOne(const addrinfo& address, const base::Deadline& deadline) {
  base::Descriptor made(socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!made) return made;
  int error = connect(made.get(), address.ai_addr, address.ai_addrlen) == 0 ? 0 : errno;
  if (error == EINPROGRESS || error == EINTR) error = waitConnected(made.get(), deadline);
  if (error == 0) return made;
  errno = error;
  return {};
}

int countOf(const addrinfo* list) {
  int count = 0;
  for (; list != nullptr; list = list->ai_next) ++count;
  return count;
}

// Each address gets an equal share of the time that is left when its turn comes, so that one that swallows packets
// does not use up the time of the next.
base::Descriptor connectToAny(const addrinfo* list, const base::Deadline& deadline) {
  base::Descriptor made;
  for (int left = countOf(list); list != nullptr && !made; list = list->ai_next, --left) {
    const int timeoutMs = deadline.remainingMs();
    made = connectToOne(*list, base::Deadline(timeoutMs < 0 ? -1 : timeoutMs / left));
  }
  if (!made && deadline.passed()) errno = ETIMEDOUT;
  return made;
}

}  // namespace

AddressList resolve(const std::string& host, unsigned short port, int flags) {
  addrinfo wanted{};
  wanted.ai_family = AF_UNSPEC;
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = flags | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &wanted, &found) != 0) return nullptr;
  return AddressList(found);
}

base::Descriptor connectTo(const std::string& host, unsigned short port, const base::Deadline& deadline) {
  const AddressList addresses = lookUp(host, port, deadline);
  return addresses == nullptr ? base::Descriptor() : connectToAny(addresses.get(), deadline);
}

}  // namespace jxplatform
