#include "tests/support/no_memory.h"

#include <cstdlib>
#include <new>

namespace noMemory {

namespace {

thread_local int left = -1;
thread_local bool oneOnly = false;
thread_local bool failed = false;

bool fails() {
  if (left < 0) return false;
  if (left > 0) {
    --left;
    return false;
  }
  if (oneOnly) left = -1;
  failed = true;
  return true;
}

}  // namespace

void after(int count) {
  left = count;
  oneOnly = false;
  failed = false;
}

void once(int count) {
  after(count);
  oneOnly = true;
}

Exempt::Exempt() : left_(left) { left = -1; }

Exempt::~Exempt() { left = left_; }

bool met() { return failed; }

}  // namespace noMemory

void* operator new(std::size_t size) {
  void* const memory = noMemory::fails() ? nullptr : std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return noMemory::fails() ? nullptr : std::malloc(size);
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { std::free(memory); }
