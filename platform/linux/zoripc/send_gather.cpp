#include "platform/linux/zoripc/send_gather.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace zoripc {

namespace {

constexpr std::size_t kFirstCapacity = 512;

}  // namespace

bool SendGather::append(const void* data, std::size_t size) {
  if (size > kCapacity - end_ || !reserve(end_ + size)) return false;
  if (size > 0) std::memcpy(data_ + end_, data, size);
  end_ += size;
  return true;
}

bool SendGather::reserve(std::size_t needed) {
  if (needed <= capacity_) return true;
  std::size_t capacity = std::max(capacity_, kFirstCapacity);
  while (capacity < needed) capacity *= 2;
  auto* grown = static_cast<unsigned char*>(std::realloc(data_, capacity));
  if (grown == nullptr) return false;
  data_ = grown;
  capacity_ = capacity;
  return true;
}

void SendGather::sent(std::size_t count) {
  begin_ += count;
  if (empty()) begin_ = end_ = 0;
}

void SendGather::release() {
  std::free(data_);
  data_ = nullptr;
  capacity_ = begin_ = end_ = 0;
}

}  // namespace zoripc
