#include "tests/unit/shell/watched_locks.h"

#include <utility>

namespace watched {

namespace {

thread_local bool watching = false;
thread_local pthread_mutex_t* firstLock = nullptr;

}  // namespace

thread_local std::function<void()> beforeLock;

pthread_mutex_t* firstLockOf(const std::function<void()>& work) {
  firstLock = nullptr;
  watching = true;
  work();
  watching = false;
  return firstLock;
}

}  // namespace watched

// The names are the linker's.
extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t* lock);

int __wrap_pthread_mutex_lock(pthread_mutex_t* lock) {
  if (watched::watching && watched::firstLock == nullptr) watched::firstLock = lock;
  if (watched::beforeLock) std::exchange(watched::beforeLock, nullptr)();
  return __real_pthread_mutex_lock(lock);
}
}
