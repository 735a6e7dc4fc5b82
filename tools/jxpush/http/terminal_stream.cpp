#include "tools/jxpush/http/terminal_stream.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/deadline.h"
#include "base/file_io.h"

namespace jxpush {

namespace {

constexpr std::size_t kGathered = 65536;
constexpr int kArrivalPeriodMs = 100;

// A terminal that is switched off while it installs sends nothing that would tell.
void watchForDeath(int fd) {
  const int on = 1;
  const int idleSeconds = 30;
  const int betweenSeconds = 10;
  const int tries = 6;
  setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
  setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idleSeconds, sizeof idleSeconds);
  setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &betweenSeconds, sizeof betweenSeconds);
  setsockopt(fd, IPPROTO_TCP, TCP_KEEPCNT, &tries, sizeof tries);
}

}  // namespace

std::string StreamState::text(int silenceMs) const {
  switch (end) {
    case End::Interrupted:
      return "interrupted";
    case End::Silent:
      return "the terminal was silent for " + std::to_string(silenceMs / 1000) + " s";
    case End::Closed:
      return "the terminal closed the connection";
    default:
      return std::string("the connection broke (") + base::errorText(error) + ")";
  }
}

TerminalStream::TerminalStream(std::unique_ptr<zoripc::TCP> connection, int silenceMs, int stopFd, StreamState& state)
    : connection_(std::move(connection)), silenceMs_(silenceMs), stopFd_(stopFd), state_(state) {
  watchForDeath(connection_->getFD());
}

std::uint64_t TerminalStream::unacknowledged() const {
  int queued = 0;
  if (ioctl(connection_->getFD(), SIOCOUTQ, &queued) != 0) queued = 0;
  return gathered_.size() + static_cast<std::uint64_t>(std::max(queued, 0));
}

// Always false.
bool TerminalStream::ends(StreamState::End end, int error) {
  state_.end = end;
  state_.error = error;
  return false;
}

// False when the stream has ended; `happened` is 0 when the time was over.
bool TerminalStream::waitFor(short events, int timeoutMs, short& happened) {
  const base::Deadline end(timeoutMs);
  for (;;) {
    pollfd entries[2] = {{connection_->getFD(), events, 0}, {stopFd_, POLLIN, 0}};
    const int count = poll(entries, 2, end.remainingMs());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return ends(StreamState::End::Broken, errno);
    if (entries[1].revents != 0) return ends(StreamState::End::Interrupted);
    happened = entries[0].revents;
    return true;
  }
}

// True when something has come that can be read, which makes it the answer; otherwise the stream has ended.
bool TerminalStream::noteInput() {
  char byte = 0;
  const ssize_t count = recv(connection_->getFD(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  if (count == 0) return ends(StreamState::End::Closed);
  if (count < 0) return ends(StreamState::End::Broken, errno);
  state_.answering = true;
  return true;
}

// True when the terminal takes more, or answers.
bool TerminalStream::waitForRoom() {
  short happened = 0;
  if (!waitFor(POLLIN | POLLOUT, silenceMs_, happened)) return false;
  if (happened == 0) return ends(StreamState::End::Silent);
  return (happened & ~POLLOUT) == 0 || noteInput();
}

bool TerminalStream::write(const void* data, std::size_t size) {
  if (state_.end != StreamState::End::None) return false;
  gathered_.append(static_cast<const char*>(data), size);
  return gathered_.size() < kGathered || flush();
}

bool TerminalStream::flush() {
  std::size_t sent = 0;
  while (sent < gathered_.size() && !state_.answering) {
    if (!waitForRoom()) return false;
    if (state_.answering) break;
    const ssize_t count =
        send(connection_->getFD(), gathered_.data() + sent, gathered_.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count >= 0) {
      sent += static_cast<std::size_t>(count);
    } else if (errno == EPIPE || errno == ECONNRESET) {
      // It may have answered before it closed.
      const int error = errno;
      if (!noteInput()) return ends(StreamState::End::Broken, error);
    } else if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
      return ends(StreamState::End::Broken, errno);
    }
  }
  gathered_.clear();
  return true;
}

bool TerminalStream::waitUntilArrived(const std::function<void()>& onProgress) {
  std::uint64_t left = unacknowledged();
  base::Deadline end(silenceMs_);
  while (left > 0) {
    short happened = 0;
    if (!waitFor(POLLIN, kArrivalPeriodMs, happened)) return false;
    if (happened != 0) return true;
    const std::uint64_t now = unacknowledged();
    if (now < left) {
      end = base::Deadline(silenceMs_);
      onProgress();
    } else if (end.passed()) {
      return ends(StreamState::End::Silent);
    }
    left = now;
  }
  return true;
}

bool TerminalStream::receive(int timeoutMs) {
  const base::Deadline end(timeoutMs);
  for (;;) {
    short happened = 0;
    if (!waitFor(POLLIN, end.remainingMs(), happened)) return false;
    if (happened == 0) return ends(StreamState::End::Silent);
    const ssize_t count = recv(connection_->getFD(), input_.data(), input_.size(), MSG_DONTWAIT);
    if (count == 0) return ends(StreamState::End::Closed);
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) continue;
    if (count < 0) return ends(StreamState::End::Broken, errno);
    inputBegin_ = 0;
    inputEnd_ = static_cast<std::size_t>(count);
    return true;
  }
}

bool TerminalStream::readExact(void* data, std::size_t size, int timeoutMs, int gapTimeoutMs) {
  const bool gapIsLess = gapTimeoutMs >= 0 && (timeoutMs < 0 || gapTimeoutMs < timeoutMs);
  return read(data, size, gapIsLess ? gapTimeoutMs : timeoutMs) == size;
}

std::size_t TerminalStream::read(void* data, std::size_t size, int timeoutMs) {
  if (!flush()) return 0;
  std::size_t done = 0;
  const base::Deadline end(timeoutMs);
  while (done < size) {
    if (inputBegin_ == inputEnd_) {
      if (state_.end != StreamState::End::None) break;
      if (!receive(end.remainingMs())) break;
    }
    const std::size_t count = std::min(size - done, inputEnd_ - inputBegin_);
    std::memcpy(static_cast<char*>(data) + done, input_.data() + inputBegin_, count);
    inputBegin_ += count;
    done += count;
  }
  return done;
}

}  // namespace jxpush
