// Preloaded into a process: its wall clock runs ahead of the real one by the number of seconds in the file that
// JX_CLOCK_OFFSET names (a 64-bit integer in the machine's order), which may change at any time. Waits until a time of
// the wall clock end when that clock says so, as they do when the system's clock is set. The monotonic clock is left
// alone.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

enum { kMaxConditions = 1024, kSliceNs = 20000000, kSecondNs = 1000000000 };

static const volatile int64_t* offset;
static int (*realInit)(pthread_cond_t*, const pthread_condattr_t*);
static int (*realWait)(pthread_cond_t*, pthread_mutex_t*, const struct timespec*);
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t* monotonic[kMaxConditions];  // every other condition uses the wall clock
static size_t monotonicCount;

static void* find(const char* name, const char* version) {
  void* const found = version != NULL ? dlvsym(RTLD_NEXT, name, version) : NULL;
  return found != NULL ? found : dlsym(RTLD_NEXT, name);
}

__attribute__((constructor)) static void begin(void) {
  void* symbol = find("pthread_cond_init", "GLIBC_2.3.2");  // there is an older one of the same name
  memcpy(&realInit, &symbol, sizeof symbol);
  symbol = find("pthread_cond_timedwait", "GLIBC_2.3.2");
  memcpy(&realWait, &symbol, sizeof symbol);
  const char* const path = getenv("JX_CLOCK_OFFSET");
  const int fd = path != NULL ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  void* const map = fd < 0 ? MAP_FAILED : mmap(NULL, sizeof *offset, PROT_READ, MAP_SHARED, fd, 0);
  if (map == MAP_FAILED) abort();
  close(fd);
  offset = map;
}

// By the kernel, because sanitizers ask for the time before anything here has begun.
static int realGetTime(clockid_t clock, struct timespec* now) { return (int)syscall(SYS_clock_gettime, clock, now); }

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library has names of its own for them
int clock_gettime(clockid_t clock, struct timespec* now) {
  const int result = realGetTime(clock, now);
  if (result == 0 && offset != NULL && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
    now->tv_sec += (time_t)*offset;
  return result;
}

int gettimeofday(struct timeval* restrict now, void* restrict zone) {
  struct timespec time;
  (void)zone;
  clock_gettime(CLOCK_REALTIME, &time);
  now->tv_sec = time.tv_sec;
  now->tv_usec = time.tv_nsec / 1000;
  return 0;
}

time_t time(time_t* result) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  if (result != NULL) *result = now.tv_sec;
  return now.tv_sec;
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

// NOLINTEND(readability-inconsistent-declaration-parameter-name)

static int isMonotonic(const pthread_cond_t* condition) {
  int found = 0;
  pthread_mutex_lock(&lock);
  for (size_t i = 0; i < monotonicCount; ++i) found |= monotonic[i] == condition;
  pthread_mutex_unlock(&lock);
  return found;
}

static int isBefore(const struct timespec* left, const struct timespec* right) {
  return left->tv_sec != right->tv_sec ? left->tv_sec < right->tv_sec : left->tv_nsec < right->tv_nsec;
}

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
int pthread_cond_timedwait(pthread_cond_t* restrict condition, pthread_mutex_t* restrict mutex,
                           const struct timespec* restrict end) {
  if (isMonotonic(condition)) return realWait(condition, mutex, end);
  for (;;) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (!isBefore(&now, end)) return ETIMEDOUT;
    realGetTime(CLOCK_REALTIME, &now);
    now.tv_nsec += kSliceNs;
    now.tv_sec += now.tv_nsec / kSecondNs;
    now.tv_nsec %= kSecondNs;
    const int result = realWait(condition, mutex, &now);
    if (result != ETIMEDOUT) return result;
  }
}
