#include "tests/unit/platform/zorguiprt/no_threads.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>

namespace {

thread_local bool noThreads = false;

}  // namespace

NoThreads::NoThreads() { noThreads = true; }
NoThreads::~NoThreads() { noThreads = false; }

// Called by every library in place of the system's, because the program comes first. The system's header has reserved
// names. NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                              void* argument) noexcept {
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  return noThreads ? EAGAIN : create(thread, attributes, start, argument);
}
