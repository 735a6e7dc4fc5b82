#include "platform/linux/zoripc/socket_stream.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/ignore.h"

namespace zoripc {

namespace {

// A stream that has been silent for this long gives its memory back. Bulk that is slower than we are makes shorter
// pauses, in which mapping the memory anew each time would cost more than the pause.
constexpr int kIdleMs = 20;

bool wouldBlock(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

}  // namespace

bool SocketStream::receiveExact(void* data, std::size_t size, int timeoutMs, int gapTimeoutMs) {
  auto* bytes = static_cast<unsigned char*>(data);
  std::size_t got = ahead_.take(bytes, size);
  const base::Deadline whole(timeoutMs);
  while (got < size) {
    const int limitMs = got > 0 && gapTimeoutMs >= 0 ? whole.remainingMs(gapTimeoutMs) : whole.remainingMs();
    const std::size_t count = readSome(bytes + got, size - got, base::Deadline(limitMs));
    if (count == 0) return false;
    got += count;
    if (got < size && timeoutMs > 0 && whole.passed()) return false;
  }
  return true;
}

std::size_t SocketStream::read(void* data, std::size_t size, int timeoutMs) {
  if (ahead_.takeAll(data, size)) return size;
  auto* bytes = static_cast<unsigned char*>(data);
  std::size_t got = ahead_.take(bytes, size);
  const base::Deadline whole(timeoutMs);
  while (got < size) {
    const std::size_t count = readSome(bytes + got, size - got, whole);
    if (count == 0) break;
    got += count;
    if (timeoutMs > 0 && whole.passed()) break;
  }
  return got;
}

// At least one byte, or 0 at the end of the stream, on failure or when the time is over.
std::size_t SocketStream::readSome(void* data, std::size_t size, const base::Deadline& deadline) {
  used_ = true;
  bool look = out_.empty();  // what answers the bytes that are sent first cannot be there yet
  while (!ended_ && !readFailed_) {
    if (!out_.empty()) base::ignore(sendOnce(nullptr, 0));  // what is left goes out while it waits
    const bool waiting = out_.empty() && mayWait(deadline.remainingMs(kIdleMs));
    const std::size_t count = look || waiting ? receive(data, size, waiting) : 0;
    if (count > 0) return count;
    if (ended_ || readFailed_ || !waitForInput(deadline)) break;
    look = true;
  }
  return 0;
}

// What is there now, up to `size`; the rest of it goes into the read-ahead. A read that is no smaller than the
// read-ahead goes straight to its destination, as does one for which there is no memory.
std::size_t SocketStream::receive(void* data, std::size_t size, bool waiting) {
  const ReadAhead::Room room = ahead_.prepare();
  if (room.size > size) {
    ahead_.received(receiveInto(room.data, room.size, waiting));
    return ahead_.take(data, size);
  }
  const std::size_t count = receiveInto(data, size, waiting);
  if (count == size) ahead_.expectBulk();
  return count;
}

// With `waiting`, what comes within kIdleMs. Nothing when a signal comes first.
std::size_t SocketStream::receiveInto(void* data, std::size_t size, bool waiting) {
  const ssize_t count = recv(fd(), data, size, waiting ? 0 : MSG_DONTWAIT);
  if (count > 0) return static_cast<std::size_t>(count);
  if (count == 0) {
    ended_ = true;
  } else if (errno != EINTR && !wouldBlock(errno)) {
    readFailed_ = true;
  }
  return 0;
}

void SocketStream::waitInReads() {
  const timeval limit{0, suseconds_t{kIdleMs} * 1000};
  waitsInReads_ = setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0;
}

// Whether the receiving call may wait when there are `timeoutMs`.
bool SocketStream::mayWait(int timeoutMs) const { return waitsInReads_ && timeoutMs >= kIdleMs; }

// Sends what was gathered as far as the peer takes it, while waiting for input: a peer that sends before it reads must
// not be able to stop both ends.
bool SocketStream::waitForInput(const base::Deadline& deadline) {
  for (;;) {
    if (!out_.empty()) base::ignore(sendOnce(nullptr, 0));  // nothing beside what was gathered
    const bool yielding = holdsIdleMemory();
    const int timeoutMs = yielding ? deadline.remainingMs(kIdleMs) : deadline.remainingMs();
    short happened = 0;
    if (!pollOnce(static_cast<short>(out_.empty() ? POLLIN : POLLIN | POLLOUT), timeoutMs, happened)) return false;
    if ((happened & ~POLLOUT) != 0) return true;
    if (happened != 0) continue;
    if (timeoutMs == kIdleMs) releaseIdleMemory();
    if (deadline.passed()) return false;
  }
}

// False on failure. `happened` is 0 when the time was over or a signal came.
bool SocketStream::pollOnce(short events, int timeoutMs, short& happened) {
  pollfd entry{fd(), events, 0};
  const int count = poll(&entry, 1, timeoutMs);
  happened = count > 0 ? entry.revents : static_cast<short>(0);
  if (count >= 0 || errno == EINTR) return true;
  readFailed_ = true;
  return false;
}

void SocketStream::releaseIdleMemory() {
  if (ahead_.idle()) ahead_.release();
  if (out_.idle()) out_.release();
}

bool SocketStream::write(const void* data, std::size_t size) {
  if (!socket_) writeFailed_ = true;
  if (failed()) return false;
  if (size == 0) return true;
  used_ = true;
  return out_.append(data, size) || sendAll(data, size, kWriteStallMs, base::Deadline(-1));
}

// Sends what was gathered and then `data`, as far as the peer takes it at once. Returns how many bytes of `data` went.
std::size_t SocketStream::sendOnce(const void* data, std::size_t size) {
  std::array<iovec, 2> pieces{{{const_cast<unsigned char*>(out_.empty() ? nullptr : out_.data()), out_.size()},
                               {const_cast<void*>(data), size}}};
  msghdr message{};
  message.msg_iov = pieces.data();
  message.msg_iovlen = pieces.size();
  ssize_t count = 0;
  do count = sendmsg(fd(), &message, MSG_NOSIGNAL | MSG_DONTWAIT | (closing_ ? MSG_MORE : 0));
  while (count < 0 && errno == EINTR);
  if (count >= 0) {
    const std::size_t gathered = std::min(static_cast<std::size_t>(count), out_.size());
    out_.sent(gathered);
    return static_cast<std::size_t>(count) - gathered;
  }
  if (!wouldBlock(errno)) {
    writeFailed_ = true;
    out_.release();
  }
  return 0;
}

bool SocketStream::sendAll(const void* data, std::size_t size, int stallMs, const base::Deadline& deadline) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  base::Deadline stall(stallMs);
  while (!writeFailed_) {
    const std::size_t before = out_.size() + size;
    const std::size_t count = sendOnce(bytes, size);
    if (writeFailed_) return false;
    bytes += count;
    size -= count;
    const std::size_t left = out_.size() + size;
    if (left == 0) return true;
    if (left < before) stall = base::Deadline(stallMs);
    const int timeoutMs = deadline.remainingMs(stall.remainingMs());
    if (timeoutMs == 0) {
      errno = ETIMEDOUT;
      writeFailed_ = true;
      out_.release();
    }
    pollfd entry{fd(), POLLOUT, 0};
    if (!writeFailed_) poll(&entry, 1, timeoutMs);
  }
  return false;
}

void SocketStream::close() {
  if (!socket_) return;
  ahead_.release();
  const base::Deadline deadline(kCloseMs);
  closing_ = true;
  // What cannot be sent is lost with the connection.
  if (!out_.empty() && !writeFailed_) base::ignore(sendAll(nullptr, 0, kCloseMs, deadline));
  if (!ended_ && !failed() && shutdown(fd(), SHUT_WR) == 0) drain(deadline, used_ ? kCloseSilenceMs : 0);
  base::ignore(socket_.close());  // nobody is left to be told
}

void SocketStream::drain(const base::Deadline& deadline, int silenceMs) {
  std::array<unsigned char, 4096> discarded;
  std::size_t total = 0;
  base::Deadline silence(silenceMs);
  while (total < kCloseDrainBytes && !deadline.passed()) {
    const int timeoutMs = deadline.remainingMs(silence.remainingMs());
    const bool waiting = mayWait(timeoutMs);
    const std::size_t count = receiveInto(discarded.data(), discarded.size(), waiting);
    if (ended_ || readFailed_) return;
    total += count;
    if (count > 0) {
      silence = base::Deadline(silenceMs);
      continue;
    }
    if (waiting) continue;
    short happened = 0;
    if (timeoutMs == 0 || !pollOnce(POLLIN, timeoutMs, happened)) return;
  }
}

void SocketStream::reset(base::Descriptor socket) {
  close();
  ahead_.release();
  out_.release();
  ended_ = readFailed_ = writeFailed_ = used_ = closing_ = waitsInReads_ = false;
  socket_ = std::move(socket);
}

}  // namespace zoripc
