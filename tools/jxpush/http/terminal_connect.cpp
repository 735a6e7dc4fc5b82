// Connecting, which the user can interrupt.
#include <netdb.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <thread>

#include "base/deadline.h"
#include "base/descriptor.h"
#include "base/file_io.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/common/stop_signals.h"
#include "tools/jxpush/http/terminal_stream.h"

namespace jxpush {

namespace {

constexpr int kUnknownName = -1;  // beside the errno values

bool isKnownName(const std::string& host) {
  addrinfo* found = nullptr;
  const bool known = getaddrinfo(host.c_str(), nullptr, nullptr, &found) == 0;
  if (known) freeaddrinfo(found);
  return known;
}

// An attempt on a thread of its own, which outlives an interrupted wait for it.
struct Attempt {
  void run(const HttpAddress& address, int timeoutMs) {
    const bool connected = stream->connect(address.host.c_str(), address.port, timeoutMs);
    error = connected ? 0 : errno;
    // A name that is not known and a network without a way there have the same number.
    if (error == EHOSTUNREACH && !isKnownName(address.host)) error = kUnknownName;
    eventfd_write(done.get(), 1);
  }

  const base::Descriptor done{eventfd(0, EFD_CLOEXEC)};  // readable once the attempt is over
  std::unique_ptr<zoripc::TCP> stream = std::make_unique<zoripc::TCP>();
  std::atomic<int> error{0};  // written after the stream and before `done` becomes readable
};

// False when the user interrupted first.
bool waitForEnd(const Attempt& attempt, int stopFd) {
  for (;;) {
    pollfd entries[2] = {{attempt.done.get(), POLLIN, 0}, {stopFd, POLLIN, 0}};
    if (poll(entries, 2, -1) < 0 && errno == EINTR) continue;
    return entries[1].revents == 0;
  }
}

// Why it failed, and the next step.
std::string reasonOf(int error, int waitSeconds) {
  const std::string open = "; choose Download, then HTTP, on the terminal's screen";
  if (error == ETIMEDOUT) {
    return "no connection within " + std::to_string(waitSeconds) + " s; is the terminal on, and in this network?";
  }
  if (error == kUnknownName) {
    return "no address for this name; the terminal's screen shows its address";
  }
  if (error == EHOSTUNREACH || error == ENETUNREACH) {
    return "no way to it (" + base::errorText(error) + "); is the terminal on, and in this network?";
  }
  return base::errorText(error) + (error == ECONNREFUSED ? open : "");
}

// What goes by when the terminal is switched on, gets its address, or begins to listen.
bool mayListenLater(int error) {
  return error == ECONNREFUSED || error == EHOSTUNREACH || error == ENETUNREACH || error == kUnknownName;
}

[[noreturn]] void failInterrupted() {
  throw Problem(ExitCode::kInterrupted, "interrupted before the terminal was reached");
}

// One attempt: a connection, or null with `error`.
std::unique_ptr<zoripc::TCP> attemptTo(const HttpAddress& address, int timeoutMs, int stopFd, int& error) {
  const auto attempt = std::make_shared<Attempt>();
  if (!attempt->done) throw Problem(ExitCode::kNoPort, base::errorText(errno), "unreachable");
  std::thread([attempt, address, timeoutMs] { attempt->run(address, timeoutMs); }).detach();
  if (!waitForEnd(*attempt, stopFd)) failInterrupted();
  error = attempt->error;
  return error == 0 ? std::move(attempt->stream) : nullptr;
}

}  // namespace

std::unique_ptr<zoripc::TCP> connectTo(const HttpAddress& address, int waitSeconds, bool waitForDoor, int stopFd) {
  constexpr int kPauseMs = 1000;
  // 0 would try nothing but a connection that needs no waiting.
  const int seconds = std::max(1, waitSeconds);
  const base::Deadline end(seconds * 1000);
  for (;;) {
    int error = 0;
    std::unique_ptr<zoripc::TCP> connection = attemptTo(address, std::max(1, end.remainingMs()), stopFd, error);
    if (connection != nullptr) return connection;
    if (!waitForDoor || !mayListenLater(error) || end.passed()) {
      throw Problem(ExitCode::kNoPort, address.text() + ": unreachable: " + reasonOf(error, seconds), "unreachable");
    }
    if (stopAskedWithin(stopFd, end.remainingMs(kPauseMs))) failInterrupted();
  }
}

}  // namespace jxpush
