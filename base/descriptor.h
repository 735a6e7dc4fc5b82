// The owner of a file descriptor.
#pragma once

namespace base {

// Owns a file descriptor, and closes it at its end with errno kept; -1 is none.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor();

  [[nodiscard]] int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

  // Gives the descriptor to the caller, who closes it; this object has none then.
  [[nodiscard]] int release();

  // Closes now; false with errno when close() reports that what was written was lost. True where there was none.
  [[nodiscard]] bool close();

 private:
  int fd_ = -1;
};

}  // namespace base
