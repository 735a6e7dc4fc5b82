// Connecting, which the user can interrupt.
#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <thread>

#include "base/descriptor.h"
#include "base/file_io.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/http/terminal_stream.h"

namespace jxpush {

namespace {

// An attempt on a thread of its own, which outlives an interrupted wait for it.
struct Attempt {
  void run(const HttpAddress& address, int timeoutMs) {
    const bool connected = stream->connect(address.host.c_str(), address.port, timeoutMs);
    error = connected ? 0 : errno;
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

std::string reasonOf(int error, int waitSeconds) {
  if (error == ETIMEDOUT) return "no connection within " + std::to_string(waitSeconds) + " s";
  if (error == EHOSTUNREACH) return "no address for this name, or no way to it";
  return base::errorText(error);
}

}  // namespace

std::unique_ptr<zoripc::TCP> connectTo(const HttpAddress& address, int waitSeconds, int stopFd) {
  const auto attempt = std::make_shared<Attempt>();
  if (!attempt->done) throw Problem(ExitCode::kNoPort, base::errorText(errno), "unreachable");
  // 0 would try nothing but a connection that needs no waiting.
  const int timeoutMs = std::max(1, waitSeconds) * 1000;
  std::thread([attempt, address, timeoutMs] { attempt->run(address, timeoutMs); }).detach();
  if (!waitForEnd(*attempt, stopFd)) {
    throw Problem(ExitCode::kInterrupted, "interrupted before the terminal was reached");
  }
  if (attempt->error == 0) return std::move(attempt->stream);
  throw Problem(ExitCode::kNoPort,
                address.text() + ": unreachable: " + reasonOf(attempt->error, std::max(1, waitSeconds)), "unreachable");
}

}  // namespace jxpush
