#include "platform/linux/zorguiprt/connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "base/ignore.h"
#include "platform/linux/support/connect.h"

namespace jxplatform {
namespace {

constexpr int kFarewellMs = 500;

bool isPassing(int error) { return error == EINTR || error == EAGAIN; }

}  // namespace

Connection::Connection(base::Descriptor socket) : socket_(std::move(socket)), readEnd_(kWholeMs) {}

bool Connection::waitFor(short events, const base::Deadline& end) const {
  return !end.passed() && waitReady(socket(), events, base::Deadline(end.remainingMs(kSilenceMs))) == 0;
}

std::size_t Connection::read(char* data, std::size_t size) {
  while (waitFor(POLLIN, readEnd_)) {
    const ssize_t count = recv(socket(), data, size, MSG_DONTWAIT);
    if (count >= 0) return static_cast<std::size_t>(count);
    if (!isPassing(errno)) break;
  }
  return 0;
}

bool Connection::write(std::string_view bytes, const base::Deadline& end) {
  while (!bytes.empty()) {
    if (!waitFor(POLLOUT, end)) return false;
    const ssize_t count = send(socket(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < 0 && !isPassing(errno)) return false;
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

// Bytes left unread would reset the connection and take the answer with it.
void Connection::closeGently() {
  shutdown(socket(), SHUT_WR);
  const base::Deadline end(kFarewellMs);
  char discarded[4096];
  while (!end.passed() && waitReady(socket(), POLLIN, end) == 0) {
    if (recv(socket(), discarded, sizeof discarded, MSG_DONTWAIT) <= 0) break;
  }
  base::ignore(socket_.close());  // what was written and not taken is lost with the connection
}

}  // namespace jxplatform
