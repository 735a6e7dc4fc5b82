// Small writes on their way to becoming one send.
#pragma once

#include <cstddef>

namespace zoripc {

// Bytes written but not yet sent. Holds no memory until the first of them. No operation throws.
class SendGather {
 public:
  static constexpr std::size_t kCapacity = std::size_t{16} * 1024;

  SendGather() = default;
  SendGather(const SendGather&) = delete;
  SendGather& operator=(const SendGather&) = delete;
  ~SendGather() { release(); }

  // Appends all of it, or nothing and returns false when there is no room or no memory.
  [[nodiscard]] bool append(const void* data, std::size_t size);

  const unsigned char* data() const { return data_ + begin_; }
  std::size_t size() const { return end_ - begin_; }
  bool empty() const { return begin_ == end_; }

  // Drops `count` bytes from the front: they have been sent.
  void sent(std::size_t count);

  // True when memory is held but no byte.
  bool idle() const { return data_ != nullptr && empty(); }

  // Gives the memory back, and what it holds.
  void release();

 private:
  [[nodiscard]] bool reserve(std::size_t needed);

  unsigned char* data_ = nullptr;
  std::size_t capacity_ = 0;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace zoripc
