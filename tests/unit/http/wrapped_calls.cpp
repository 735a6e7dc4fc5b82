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

template <class Call>
void note(std::vector<Call>& calls, Call call) {
  const noMemory::Exempt own;
  calls.push_back(std::move(call));
}

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
  note(script.calls, {{{set[0], set[1]}}, count, timeoutMs});
  return script.answers[script.next++](set);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
  int detachState = PTHREAD_CREATE_JOINABLE;
  if (attributes != nullptr) pthread_attr_getdetachstate(attributes, &detachState);
  const int error = threadsFail ? EAGAIN : __real_pthread_create(thread, attributes, start, argument);
  note(threadCalls, {"create", attributes, detachState == PTHREAD_CREATE_DETACHED, error == 0 ? *thread : pthread_t{}});
  return error;
}

int __wrap_pthread_attr_destroy(pthread_attr_t* attributes) {
  note(threadCalls, {"destroy", attributes, false, {}});
  return __real_pthread_attr_destroy(attributes);
}

int __wrap_pthread_join(pthread_t thread, void** result) {
  note(threadCalls, {"join", nullptr, false, thread});
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

std::vector<ThreadCall> takeThreadCalls() { return std::exchange(threadCalls, {}); }

}  // namespace wrapped
