#include "tests/unit/http/wrapped_calls.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "tests/support/no_memory.h"

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
std::atomic<bool> attributesFail{false};

template <class Call>
void note(std::vector<Call>& calls, Call call) {
  const noMemory::Exempt own;
  calls.push_back(std::move(call));
}

std::size_t stackSizeOf(const pthread_attr_t& attributes) {
  std::size_t size = 0;
  pthread_attr_getstacksize(&attributes, &size);
  return size;
}

bool isDetached(const pthread_attr_t& attributes) {
  int state = PTHREAD_CREATE_JOINABLE;
  pthread_attr_getdetachstate(&attributes, &state);
  return state == PTHREAD_CREATE_DETACHED;
}

}  // namespace

extern "C" int __real_poll(pollfd* set, nfds_t count, int timeoutMs);
extern "C" int __wrap_poll(pollfd* set, nfds_t count, int timeoutMs);
extern "C" int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                                     void* argument);
extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                                     void* argument);
extern "C" int __real_pthread_attr_init(pthread_attr_t* attributes);
extern "C" int __wrap_pthread_attr_init(pthread_attr_t* attributes);
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
  note(script.calls, {{{set[0], set[1]}}, count, timeoutMs});
  return script.answers[script.next++](set);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
  pthread_attr_t plain;
  __real_pthread_attr_init(&plain);
  const bool detached = attributes != nullptr && isDetached(*attributes);
  const bool ownStack = attributes != nullptr && stackSizeOf(*attributes) != stackSizeOf(plain);
  __real_pthread_attr_destroy(&plain);
  const int error = threadsFail ? EAGAIN : __real_pthread_create(thread, attributes, start, argument);
  note(threadCalls, {"create", attributes, detached, ownStack, error == 0 ? *thread : pthread_t{}, start, argument});
  return error;
}

int __wrap_pthread_attr_init(pthread_attr_t* attributes) {
  return attributesFail ? ENOMEM : __real_pthread_attr_init(attributes);
}

int __wrap_pthread_attr_destroy(pthread_attr_t* attributes) {
  note(threadCalls, {"destroy", attributes, false, false, {}, nullptr, nullptr});
  return __real_pthread_attr_destroy(attributes);
}

int __wrap_pthread_join(pthread_t thread, void** result) {
  note(threadCalls, {"join", nullptr, false, false, thread, nullptr, nullptr});
  return __real_pthread_join(thread, result);
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

void failAttributes(bool fail) { attributesFail = fail; }

std::vector<ThreadCall> takeThreadCalls() { return std::exchange(threadCalls, {}); }

}  // namespace wrapped
