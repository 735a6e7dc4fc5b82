#include "tests/unit/platform/zoripc/driven_time.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <utility>

#include "tests/unit/platform/zoripc/failing_calls.h"

namespace driven {

namespace {

constexpr long long kNsPerSecond = 1000000000;
constexpr long long kNsPerMs = 1000000;

struct Script {
  long long beginNs;
  long long nowMs = 0;
  std::multimap<long long, std::function<void()>> due;

  // Sets the clock forward to the next action and does it; false when none is due by `endMs`.
  bool advance(long long endMs) {
    if (due.empty() || due.begin()->first > endMs) return false;
    const auto next = due.extract(due.begin());
    nowMs = next.key();
    next.mapped()();
    return true;
  }
};

std::atomic<long long> aheadNs{0};
thread_local std::unique_ptr<Script> script;

long long toNs(const timespec& time) { return static_cast<long long>(time.tv_sec) * kNsPerSecond + time.tv_nsec; }

timespec fromNs(long long ns) { return {static_cast<time_t>(ns / kNsPerSecond), static_cast<long>(ns % kNsPerSecond)}; }

// By the kernel, because sanitizers ask for the time before anything here has begun.
long long realNs() {
  timespec now{};
  syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
  return toNs(now);
}

template <class Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int realPoll(pollfd* entries, nfds_t count, int timeoutMs) {
  static const auto real = next<int (*)(pollfd*, nfds_t, int)>("poll");
  return real(entries, count, timeoutMs);
}

int drivenPoll(pollfd* entries, nfds_t count, int timeoutMs) {
  const long long endMs = script->nowMs + timeoutMs;
  for (;;) {
    const int ready = realPoll(entries, count, 0);
    if (ready != 0) return ready;
    if (script->advance(timeoutMs < 0 ? (1LL << 62) : endMs)) continue;
    if (timeoutMs < 0) {
      std::fputs("a poll waits for ever\n", stderr);
      std::abort();
    }
    script->nowMs = endMs;
    return 0;
  }
}

ssize_t realRecv(int fd, void* data, std::size_t size, int flags) {
  static const auto real = next<ssize_t (*)(int, void*, std::size_t, int)>("recv");
  return real(fd, data, size, flags);
}

// How long a receive waits at most, in milliseconds; 0: for ever.
long long receiveLimitMs(int fd) {
  timeval limit{};
  socklen_t length = sizeof limit;
  getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &length);
  return limit.tv_sec * 1000LL + limit.tv_usec / 1000;
}

ssize_t drivenRecv(int fd, void* data, std::size_t size, int flags) {
  const long long limitMs = receiveLimitMs(fd);
  if (limitMs == 0 || (flags & MSG_DONTWAIT) != 0) return realRecv(fd, data, size, flags);
  const long long endMs = script->nowMs + limitMs;
  for (;;) {
    const ssize_t count = realRecv(fd, data, size, flags | MSG_DONTWAIT);
    if (count >= 0 || errno != EAGAIN || script->nowMs == endMs) return count;
    if (!script->advance(endMs)) script->nowMs = endMs;
  }
}

void repeat(long long at, long long ms, const std::function<bool()>& action) {
  script->due.emplace(at, [=] {
    if (action()) repeat(at + ms, ms, action);
  });
}

}  // namespace

ClockAhead::ClockAhead(long long ms) : ms_(ms) { aheadNs += ms_ * kNsPerMs; }
ClockAhead::~ClockAhead() { aheadNs -= ms_ * kNsPerMs; }

Time::Time() { script = std::make_unique<Script>(Script{realNs(), 0, {}}); }
Time::~Time() { script.reset(); }

void Time::at(long long ms, std::function<void()> action) { script->due.emplace(ms, std::move(action)); }
void Time::every(long long ms, const std::function<bool()>& action) { repeat(script->nowMs + ms, ms, action); }
void Time::pass(long long ms) { script->nowMs += ms; }
long long Time::now() const { return script->nowMs; }

}  // namespace driven

// In place of the C library's, for every library of the process; the headers give its parameters reserved names.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

int clock_gettime(clockid_t clock, timespec* now) {
  using namespace driven;
  if (clock != CLOCK_MONOTONIC) return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
  *now = fromNs(script != nullptr ? script->beginNs + script->nowMs * kNsPerMs : realNs() + aheadNs);
  return 0;
}

int poll(pollfd* entries, nfds_t count, int timeoutMs) {
  if (const int error = failing::next("poll"); error != 0) {
    errno = error;
    return -1;
  }
  return driven::script != nullptr ? driven::drivenPoll(entries, count, timeoutMs)
                                   : driven::realPoll(entries, count, timeoutMs);
}

ssize_t recv(int fd, void* data, std::size_t size, int flags) {
  if (const int error = failing::next("recv"); error != 0) {
    errno = error;
    return -1;
  }
  return driven::script != nullptr ? driven::drivenRecv(fd, data, size, flags)
                                   : driven::realRecv(fd, data, size, flags);
}

// A wait until a time of the clock that is ahead.
int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* end) {
  using namespace driven;
  static const auto real =
      next<int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)>("pthread_cond_clockwait");
  const timespec realEnd = clock == CLOCK_MONOTONIC ? fromNs(toNs(*end) - aheadNs) : *end;
  return real(condition, mutex, clock, &realEnd);
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
