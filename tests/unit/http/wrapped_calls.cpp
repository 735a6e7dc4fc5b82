#include "tests/unit/http/wrapped_calls.h"

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

struct Script {
  bool active = false;
  std::size_t next = 0;
  std::vector<wrapped::PollAnswer> answers;
  std::vector<wrapped::Poll> calls;
};

thread_local Script script;
thread_local std::vector<wrapped::ThreadCall> threadCalls;
std::atomic<bool> threadsFail{false};
std::atomic<bool> mapsFail{false};

}  // namespace

extern "C" int __real_poll(pollfd* set, nfds_t count, int timeoutMs);
extern "C" int __wrap_poll(pollfd* set, nfds_t count, int timeoutMs);
extern "C" int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                                     void* argument);
extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                                     void* argument);
extern "C" int __real_pthread_attr_destroy(pthread_attr_t* attributes);
extern "C" int __wrap_pthread_attr_destroy(pthread_attr_t* attributes);
extern "C" int __real_pthread_join(pthread_t thread, void** result);
extern "C" int __wrap_pthread_join(pthread_t thread, void** result);

int __wrap_poll(pollfd* set, nfds_t count, int timeoutMs) {
  if (!script.active) return __real_poll(set, count, timeoutMs);
  if (script.next == script.answers.size()) {
    std::fputs("poll was called once more than the test expects\n", stderr);
    std::abort();
  }
  script.calls.push_back({{set[0], set[1]}, count, timeoutMs});
  return script.answers[script.next++](set);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
  int detachState = PTHREAD_CREATE_JOINABLE;
  if (attributes != nullptr) pthread_attr_getdetachstate(attributes, &detachState);
  const int error = threadsFail ? EAGAIN : __real_pthread_create(thread, attributes, start, argument);
  threadCalls.push_back(
      {"create", attributes, detachState == PTHREAD_CREATE_DETACHED, error == 0 ? *thread : pthread_t{}});
  return error;
}

int __wrap_pthread_attr_destroy(pthread_attr_t* attributes) {
  threadCalls.push_back({"destroy", attributes, false, {}});
  return __real_pthread_attr_destroy(attributes);
}

int __wrap_pthread_join(pthread_t thread, void** result) {
  threadCalls.push_back({"join", nullptr, false, thread});
  return __real_pthread_join(thread, result);
}

// With 64-bit file offsets on a 32-bit processor the call has the second name.
extern "C" void* __real_mmap(void* address, std::size_t size, int protection, int flags, int fd, off_t offset);
extern "C" void* __real_mmap64(void* address, std::size_t size, int protection, int flags, int fd, off_t offset);
extern "C" void* __wrap_mmap(void* address, std::size_t size, int protection, int flags, int fd, off_t offset);
extern "C" void* __wrap_mmap64(void* address, std::size_t size, int protection, int flags, int fd, off_t offset);

void* __wrap_mmap(void* address, std::size_t size, int protection, int flags, int fd, off_t offset) {
  if (mapsFail) return errno = ENOMEM, MAP_FAILED;
  return __real_mmap(address, size, protection, flags, fd, offset);
}

void* __wrap_mmap64(void* address, std::size_t size, int protection, int flags, int fd, off_t offset) {
  if (mapsFail) return errno = ENOMEM, MAP_FAILED;
  return __real_mmap64(address, size, protection, flags, fd, offset);
}

namespace wrapped {

void answerPolls(std::vector<PollAnswer> answers) {
  script = Script();
  script.active = true;
  script.answers = std::move(answers);
}

std::vector<Poll> takePolls() {
  std::vector<Poll> calls = std::move(script.calls);
  script = Script();
  return calls;
}

void failThreads(bool fail) { threadsFail = fail; }

std::vector<ThreadCall> takeThreadCalls() { return std::exchange(threadCalls, {}); }

void failMaps(bool fail) { mapsFail = fail; }

}  // namespace wrapped
