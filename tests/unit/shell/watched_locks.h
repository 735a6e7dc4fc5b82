// The mutexes that a thread locks through pthread_mutex_lock, which the linker sends here first (--wrap).
#pragma once

#include <pthread.h>

#include <functional>

namespace watched {

extern thread_local std::function<void()> beforeLock;  // runs once, before the thread's next lock

// The first mutex that `work` locks on this thread; null when it locks none.
pthread_mutex_t* firstLockOf(const std::function<void()>& work);

}  // namespace watched
