// Preloaded into a process: its monotonic clock runs JX_CLOCK_RATE times as fast as the real one from the start of the
// process on, and its waits are as many times shorter. What is due after half a minute of silence is then seen in a
// second. A rate of 1/N makes all that as many times slower: what waits for a time-out is then told from what does not.
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

enum { kMaxConditions = 64 };

static const int64_t kSecondNs = 1000000000;

static int64_t rate = 1;
static int64_t slowness = 1;
static int64_t beginNs;
static int (*realPoll)(struct pollfd*, nfds_t, int);
static int (*realPpoll)(struct pollfd*, nfds_t, const struct timespec*, const sigset_t*);
static int (*realClockWait)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const struct timespec*);
static int (*realInit)(pthread_cond_t*, const pthread_condattr_t*);
static int (*realWait)(pthread_cond_t*, pthread_mutex_t*, const struct timespec*);
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t* monotonic[kMaxConditions];  // every other condition uses the wall clock
static size_t monotonicCount;

// By the kernel, because sanitizers ask for the time before anything here has begun.
static int realGetTime(clockid_t clock, struct timespec* now) { return (int)syscall(SYS_clock_gettime, clock, now); }

static int64_t toNs(const struct timespec* time) { return (int64_t)time->tv_sec * kSecondNs + time->tv_nsec; }

static struct timespec fromNs(int64_t ns) {
  const struct timespec time = {(time_t)(ns / kSecondNs), (long)(ns % kSecondNs)};
  return time;
}

static int64_t shortened(int64_t span) { return (span * slowness + rate - 1) / rate; }

// When a time of the fast clock really comes.
static struct timespec realEnd(const struct timespec* end) { return fromNs(beginNs + shortened(toNs(end) - beginNs)); }

static void* find(const char* name, const char* version) {
  void* const found = version != NULL ? dlvsym(RTLD_NEXT, name, version) : NULL;
  return found != NULL ? found : dlsym(RTLD_NEXT, name);
}

__attribute__((constructor)) static void begin(void) {
  void* symbol = find("poll", NULL);
  memcpy(&realPoll, &symbol, sizeof symbol);
  symbol = find("ppoll", NULL);
  memcpy(&realPpoll, &symbol, sizeof symbol);
  symbol = find("pthread_cond_clockwait", NULL);
  memcpy(&realClockWait, &symbol, sizeof symbol);
  symbol = find("pthread_cond_init", "GLIBC_2.3.2");  // there is an older one of the same name
  memcpy(&realInit, &symbol, sizeof symbol);
  symbol = find("pthread_cond_timedwait", "GLIBC_2.3.2");
  memcpy(&realWait, &symbol, sizeof symbol);
  struct timespec now;
  realGetTime(CLOCK_MONOTONIC, &now);
  beginNs = toNs(&now);
  const char* const text = getenv("JX_CLOCK_RATE");
  char* rest = NULL;
  if (text != NULL) rate = strtol(text, &rest, 10);
  if (rest != NULL && *rest == '/') slowness = strtol(rest + 1, NULL, 10);
  if (rate < 1 || slowness < 1) abort();
}

int clock_gettime(clockid_t clock, struct timespec* now) {
  const int result = realGetTime(clock, now);
  if (result == 0 && clock == CLOCK_MONOTONIC) *now = fromNs(beginNs + (toNs(now) - beginNs) * rate / slowness);
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

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library has names of its own for them
int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const struct timespec* end) {
  if (clock != CLOCK_MONOTONIC) return realClockWait(condition, mutex, clock, end);
  const struct timespec real = realEnd(end);
  return realClockWait(condition, mutex, clock, &real);
}

int pthread_cond_init(pthread_cond_t* restrict condition, const pthread_condattr_t* restrict attribute) {
  clockid_t clock = CLOCK_REALTIME;
  if (attribute != NULL) pthread_condattr_getclock(attribute, &clock);
  pthread_mutex_lock(&lock);
  if (clock == CLOCK_MONOTONIC) {
    if (monotonicCount == kMaxConditions) abort();
    monotonic[monotonicCount++] = condition;
  }
  pthread_mutex_unlock(&lock);
  return realInit(condition, attribute);
}

static int isMonotonic(const pthread_cond_t* condition) {
  int found = 0;
  pthread_mutex_lock(&lock);
  for (size_t i = 0; i < monotonicCount; ++i) found |= monotonic[i] == condition;
  pthread_mutex_unlock(&lock);
  return found;
}

int pthread_cond_timedwait(pthread_cond_t* restrict condition, pthread_mutex_t* restrict mutex,
                           const struct timespec* restrict end) {
  if (!isMonotonic(condition)) return realWait(condition, mutex, end);
  const struct timespec real = realEnd(end);
  return realWait(condition, mutex, &real);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
