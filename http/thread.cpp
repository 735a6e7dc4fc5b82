#include "http/thread.h"

#include <cstdint>
#include <memory>

#include "http/no_throw.h"

namespace zorhtml {

namespace {

constexpr int kStarted = 1;
constexpr int kDetached = 2;

bool create(pthread_t& thread, Thread* object) { return pthread_create(&thread, nullptr, threadEntry, object) == 0; }

bool createDetached(pthread_t& thread, Thread* object) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  const bool created = pthread_create(&thread, &attributes, threadEntry, object) == 0;
  pthread_attr_destroy(&attributes);
  return created;
}

}  // namespace

void Thread::onStart(void* /*argument*/) {}

void* threadEntry(void* argument) {
  const std::unique_ptr<Thread> object(static_cast<Thread*>(argument));
  if (!object) return nullptr;
  int result = 0;
  try {
    object->onStart(argument);
    result = object->run();
  } catch (...) {
    passOnThreadExit();
    result = 0;  // an exception ends this thread, never the process
  }
  // An exit value is a pointer by form alone.
  return reinterpret_cast<void*>(static_cast<std::intptr_t>(result));  // NOLINT(performance-no-int-to-ptr)
}

ThreadControl::ThreadControl(Thread* object, bool detached) {
  const bool started = detached ? createDetached(thread, object) : create(thread, object);
  if (started) {
    state = detached ? kStarted | kDetached : kStarted;
  } else {
    delete object;
  }
}

ThreadControl::~ThreadControl() {
  if (state == kStarted) pthread_join(thread, nullptr);
}

}  // namespace zorhtml
