#include "fuzz/memory_count.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace memoryCount {

namespace {

thread_local std::ptrdiff_t used = 0;  // what was taken before the count can be given back during it
thread_local std::ptrdiff_t most = 0;

void* take(std::size_t size) {
  void* const memory = std::malloc(size);
  used += static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
  most = std::max(most, used);
  return memory;
}

void* takeOrThrow(std::size_t size) {
  void* const memory = take(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void give(void* memory) {
  used -= static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
  std::free(memory);
}

}  // namespace

void begin() { used = most = 0; }

std::size_t peak() { return static_cast<std::size_t>(most); }

}  // namespace memoryCount

// Each by itself: a sanitizer has all of them, and its others do not call these.
void* operator new(std::size_t size) { return memoryCount::takeOrThrow(size); }
void* operator new[](std::size_t size) { return memoryCount::takeOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept { return memoryCount::take(size); }
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept { return memoryCount::take(size); }
void operator delete(void* memory) noexcept { memoryCount::give(memory); }
void operator delete[](void* memory) noexcept { memoryCount::give(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { memoryCount::give(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { memoryCount::give(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { memoryCount::give(memory); }
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept { memoryCount::give(memory); }
