// Preloaded into a process: its monotonic clock runs JX_CLOCK_RATE times as fast as the real one from the start of the
// process on, and its waits are as many times shorter. What is due after half a minute of silence is then seen in a
// second.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

static const int64_t kSecondNs = 1000000000;

static int64_t rate = 1;
static int64_t beginNs;
static int (*realPoll)(struct pollfd*, nfds_t, int);
static int (*realPpoll)(struct pollfd*, nfds_t, const struct timespec*, const sigset_t*);
static int (*realClockWait)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const struct timespec*);

// By the kernel, because sanitizers ask for the time before anything here has begun.
static int realGetTime(clockid_t clock, struct timespec* now) { return (int)syscall(SYS_clock_gettime, clock, now); }

static int64_t toNs(const struct timespec* time) { return (int64_t)time->tv_sec * kSecondNs + time->tv_nsec; }

static struct timespec fromNs(int64_t ns) {
  const struct timespec time = {(time_t)(ns / kSecondNs), (long)(ns % kSecondNs)};
  return time;
}

static int64_t shortened(int64_t span) { return (span + rate - 1) / rate; }

__attribute__((constructor)) static void begin(void) {
  void* symbol = dlsym(RTLD_NEXT, "poll");
  memcpy(&realPoll, &symbol, sizeof symbol);
  symbol = dlsym(RTLD_NEXT, "ppoll");
  memcpy(&realPpoll, &symbol, sizeof symbol);
  symbol = dlsym(RTLD_NEXT, "pthread_cond_clockwait");
  memcpy(&realClockWait, &symbol, sizeof symbol);
  struct timespec now;
  realGetTime(CLOCK_MONOTONIC, &now);
  beginNs = toNs(&now);
  const char* const text = getenv("JX_CLOCK_RATE");
  if (text != NULL) rate = strtol(text, NULL, 10);
  if (rate < 1) abort();
}

int clock_gettime(clockid_t clock, struct timespec* now) {
  const int result = realGetTime(clock, now);
  if (result == 0 && clock == CLOCK_MONOTONIC && rate > 1) *now = fromNs(beginNs + (toNs(now) - beginNs) * rate);
  return result;
}

int poll(struct pollfd* entries, nfds_t count, int timeoutMs) {
  return realPoll(entries, count, timeoutMs > 0 ? (int)shortened(timeoutMs) : timeoutMs);
}

int ppoll(struct pollfd* entries, nfds_t count, const struct timespec* timeout, const sigset_t* signals) {
  if (timeout == NULL) return realPpoll(entries, count, NULL, signals);
  const struct timespec span = fromNs(shortened(toNs(timeout)));
  return realPpoll(entries, count, &span, signals);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const struct timespec* end) {
  if (clock != CLOCK_MONOTONIC) return realClockWait(condition, mutex, clock, end);
  const struct timespec realEnd = fromNs(beginNs + shortened(toNs(end) - beginNs));
  return realClockWait(condition, mutex, clock, &realEnd);
}
