// What a stream has received before anybody asked for it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace zoripc {

// A buffer that is small for a conversation, large for bulk, and nothing while the stream is idle: with a thousand idle
// connections each byte kept here counts a thousand times. The process keeps one large one that nobody uses. No
// operation throws; one object has one thread, other objects may have others.
class ReadAhead {
 public:
  static constexpr std::size_t kSmall = 2048;
  static constexpr std::size_t kLarge = std::size_t{128} * 1024;

  ReadAhead() = default;
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;
  ~ReadAhead() { release(); }

  // Moves `size` of the bytes held to `data`; false, and none, when fewer are held. Inline: lines are read a byte at a
  // time.
  [[nodiscard]] bool takeAll(void* data, std::size_t size) {
    if (size > end_ - begin_) return false;
    if (size == 1) {
      *static_cast<unsigned char*>(data) = data_[begin_];
    } else if (size > 0) {
      std::memcpy(data, data_ + begin_, size);
    }
    begin_ += size;
    return true;
  }

  // Moves up to `size` of the bytes held to `data`; returns how many.
  [[nodiscard]] std::size_t take(void* data, std::size_t size) {
    const std::size_t count = std::min(size, end_ - begin_);
    return takeAll(data, count) ? count : 0;
  }

  // Room to receive into; valid until the next call of prepare() or release(). Only when every byte has been taken. The
  // size is 0 when there is no memory.
  struct Room {
    unsigned char* data;
    std::size_t size;
  };
  [[nodiscard]] Room prepare();

  // Tells that `count` bytes have been put into the room.
  void received(std::size_t count);

  // Tells that a receive filled all it was given: the next room is a large one.
  void expectBulk() { bulk_ = true; }

  // True when memory is held but no byte.
  bool idle() const { return data_ != nullptr && begin_ == end_; }

  // Gives the memory back, and what it holds.
  void release();

 private:
  void obtain(std::size_t size);

  unsigned char* data_ = nullptr;
  std::size_t capacity_ = 0;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool bulk_ = false;
};

}  // namespace zoripc
