// Objects that run on a thread of their own, and the handle that starts them.
#pragma once

#include <pthread.h>

namespace zorhtml {

// Something that runs on a thread and owns itself while it does: made with new, handed to a ThreadControl, and deleted
// by its own thread however that ends: after run(), by an exception, by pthread_exit() or by a cancellation.
class Thread {
 public:
  Thread() = default;
  Thread(const Thread&) = default;
  Thread& operator=(const Thread&) = default;
  virtual ~Thread() = default;

  // The thread's work; its result becomes the thread's exit value. An exception ends the thread with the exit value 0.
  virtual int run() = 0;

  // Called on the new thread just before run(), with what its start routine was given: this object. The base does
  // nothing. An exception ends the thread as one of run() does.
  virtual void onStart(void* argument);
};

// Starts a Thread on a POSIX thread; lives on its creator's stack, who reads its fields and leaves them as they are.
class ThreadControl {
 public:
  // Takes ownership of `object` and starts it, detached or joinable. Where no thread can be had, `object` is deleted at
  // once, and `state` is 0.
  ThreadControl(Thread* object, bool detached);
  ThreadControl(const ThreadControl&) = delete;
  ThreadControl& operator=(const ThreadControl&) = delete;

  // Waits for a joinable thread to end; leaves a detached one alone.
  virtual ~ThreadControl();

  pthread_t thread{};
  int state = 0;  // 0: no thread was started; 1: a joinable one, not joined yet; 3: a detached one
};

// The start routine of every thread: calls onStart() and run() on the Thread that `argument` points to, deletes it and
// returns the result of run(), or 0 after an exception. Null returns null.
void* threadEntry(void* argument);

}  // namespace zorhtml
