#include "tools/jxpush/stop_signals.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "tools/jxpush/problem.h"

namespace jxpush {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
int stopPipe[2] = {-1, -1};

extern "C" void noteStop(int /*number*/) {
  const int saved = errno;
  const char byte = 0;
  // A full pipe says the same.
  if (write(stopPipe[1], &byte, 1) < 0) errno = saved;
  for (const int number : kSignals) signal(number, SIG_DFL);
  errno = saved;
}

}  // namespace

int catchStopSignals() {
  if (pipe2(stopPipe, O_CLOEXEC | O_NONBLOCK) != 0) throw Problem(ExitCode::kGaveUp, std::strerror(errno));
  struct sigaction action {};
  action.sa_handler = noteStop;
  for (const int number : kSignals) sigaction(number, &action, nullptr);
  return stopPipe[0];
}

bool stopAsked(int stopFd) {
  pollfd entry{stopFd, POLLIN, 0};
  return poll(&entry, 1, 0) > 0;
}

}  // namespace jxpush
