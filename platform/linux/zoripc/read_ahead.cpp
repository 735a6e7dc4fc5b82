#include "platform/linux/zoripc/read_ahead.h"

#include <sys/mman.h>

#include <cstdlib>

#include "base/ignore.h"

namespace zoripc {

ReadAhead::Room ReadAhead::prepare() {
  begin_ = end_ = 0;
  // The room tells what was to be had.
  if (bulk_ && capacity_ < kLarge) base::ignore(obtain(kLarge));
  if (data_ == nullptr) base::ignore(obtain(kSmall));
  return {data_, capacity_};
}

void ReadAhead::received(std::size_t count) {
  end_ = count;
  if (count == capacity_) bulk_ = true;
}

// Bulk memory is mapped rather than allocated, so that giving it back really returns its pages to the system.
bool ReadAhead::obtain(std::size_t size) {
  void* memory = nullptr;
  if (size == kLarge) {
    memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return false;
  } else {
    memory = std::malloc(size);
    if (memory == nullptr) return false;
  }
  const bool bulk = bulk_;
  release();
  bulk_ = bulk;
  data_ = static_cast<unsigned char*>(memory);
  capacity_ = size;
  return true;
}

void ReadAhead::release() {
  if (capacity_ == kLarge) {
    munmap(data_, capacity_);
  } else {
    std::free(data_);
  }
  data_ = nullptr;
  capacity_ = begin_ = end_ = 0;
  bulk_ = false;
}

}  // namespace zoripc
