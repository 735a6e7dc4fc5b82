#include "platform/linux/zoripc/read_ahead.h"

#include <sys/mman.h>

#include <atomic>
#include <cstdlib>

namespace zoripc {

namespace {

// The large buffer that was given back last. Memory that is mapped anew has each of its pages faulted in and zeroed,
// which cost an upload of 64 KiB a quarter of its time.
std::atomic<unsigned char*> spare{nullptr};

// Bulk memory is mapped rather than allocated, so that giving it back really returns its pages to the system.
unsigned char* obtainLarge() {
  unsigned char* const kept = spare.exchange(nullptr, std::memory_order_acquire);
  if (kept != nullptr) return kept;
  void* const made = mmap(nullptr, ReadAhead::kLarge, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return made == MAP_FAILED ? nullptr : static_cast<unsigned char*>(made);
}

void releaseLarge(unsigned char* memory) {
  unsigned char* none = nullptr;
  if (!spare.compare_exchange_strong(none, memory, std::memory_order_release, std::memory_order_relaxed)) {
    munmap(memory, ReadAhead::kLarge);
  }
}

}  // namespace

ReadAhead::Room ReadAhead::prepare() {
  begin_ = end_ = 0;
  // The room tells what was to be had.
  if (bulk_ && capacity_ < kLarge) obtain(kLarge);
  if (data_ == nullptr) obtain(kSmall);
  return {data_, capacity_};
}

void ReadAhead::received(std::size_t count) {
  end_ = count;
  if (count == capacity_) bulk_ = true;
}

void ReadAhead::obtain(std::size_t size) {
  auto* const memory = size == kLarge ? obtainLarge() : static_cast<unsigned char*>(std::malloc(size));
  if (memory == nullptr) return;
  const bool bulk = bulk_;
  release();
  bulk_ = bulk;
  data_ = memory;
  capacity_ = size;
}

void ReadAhead::release() {
  if (capacity_ == kLarge) {
    releaseLarge(data_);
  } else {
    std::free(data_);
  }
  data_ = nullptr;
  capacity_ = begin_ = end_ = 0;
  bulk_ = false;
}

}  // namespace zoripc
