#include "tools/jxpush/common/stop_signals.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "base/deadline.h"
#include "base/file_io.h"
#include "tools/jxpush/common/problem.h"

namespace jxpush {

namespace {

struct StopSignal {
  int number;
  bool caught;
};

StopSignal signals[] = {{SIGINT, false}, {SIGTERM, false}, {SIGHUP, false}};
int stopPipe[2] = {-1, -1};

extern "C" void noteStop(int /*number*/) {
  const int saved = errno;
  const char byte = 0;
  // A full pipe says the same.
  if (write(stopPipe[1], &byte, 1) < 0) errno = saved;
  for (const StopSignal& each : signals) {
    if (each.caught) signal(each.number, SIG_DFL);
  }
  errno = saved;
}

}  // namespace

int catchStopSignals() {
  if (pipe2(stopPipe, O_CLOEXEC | O_NONBLOCK) != 0) throw Problem(ExitCode::kGaveUp, base::errorText(errno));
  struct sigaction action {};
  action.sa_handler = noteStop;
  for (StopSignal& each : signals) {
    struct sigaction found {};
    sigaction(each.number, nullptr, &found);
    // As nohup leaves it, for a sending that outlives the session.
    each.caught = each.number != SIGHUP || found.sa_handler != SIG_IGN;
    if (each.caught) sigaction(each.number, &action, nullptr);
  }
  return stopPipe[0];
}

bool stopAsked(int stopFd) { return stopAskedWithin(stopFd, 0); }

bool stopAskedWithin(int stopFd, int timeoutMs) {
  const base::Deadline end(timeoutMs);
  for (;;) {
    pollfd entry{stopFd, POLLIN, 0};
    const int count = poll(&entry, 1, end.remainingMs());
    if (count >= 0 || errno != EINTR) return count > 0;
  }
}

}  // namespace jxpush
