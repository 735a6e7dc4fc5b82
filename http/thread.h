// Objects that run on a thread of their own, and the handle that starts them.
#pragma once

#include <pthread.h>

namespace zorhtml {

// Something that runs on a thread and owns itself while it does: made with new, handed to a ThreadControl, deleted by
// its own thread after run().
class Thread {
 public:
  Thread() = default;
  Thread(const Thread&) = default;
  Thread& operator=(const Thread&) = default;
  virtual ~Thread() = default;

  // The thread's work; its result becomes the thread's exit value. Must not throw.
  virtual int run() = 0;

  // Called on the new thread just before run(). The argument carries nothing.
  virtual void onStart(void* argument);
};

// Starts a Thread on a POSIX thread; lives on its creator's stack.
class ThreadControl {
 public:
  // Takes ownership of `object` and starts it, detached or joinable. Where no thread can be had, `object` is deleted at
  // once and nothing else happens.
  ThreadControl(Thread* object, bool detached);
  ThreadControl(const ThreadControl&) = delete;
  ThreadControl& operator=(const ThreadControl&) = delete;

  // Waits for a joinable thread to end; leaves a detached one alone.
  virtual ~ThreadControl();

 protected:
  pthread_t thread{};
  int state = 0;  // 0: no thread was started; 1: a joinable one; 3: a detached one
};

// The start routine of every thread: calls onStart() and run() on the Thread that `argument` is, deletes it and returns
// the result of run(). An exception ends the thread alone, with the result 0; null returns null.
void* threadEntry(void* argument);

}  // namespace zorhtml
