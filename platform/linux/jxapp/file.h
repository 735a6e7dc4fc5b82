// File-system calls of the installer: descriptors that close themselves, whole reads and writes, removal of a tree.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace jxinstall {

// Owns a file descriptor; -1 is none.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor();

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int release();

 private:
  int fd_ = -1;
};

// openat() with O_CLOEXEC and O_NOFOLLOW added, EINTR retried.
Descriptor openAt(int directory, const std::string& name, int flags, mode_t mode = 0);

// The message of an errno value.
std::string errorText(int error);

// Reads up to `size` bytes at `offset`; the number read, less than `size` only at the end of the file, or -1 with
// errno.
std::int64_t readAt(int fd, char* buffer, std::size_t size, std::uint64_t offset);

// Appends all bytes; false with errno set, `written` telling how many went out.
bool writeAll(int fd, const char* data, std::size_t size, std::size_t& written);

// The whole of a regular file of at most `maxBytes`; false with errno set (EFBIG when it is longer, EINVAL when it is
// not a regular file).
bool readFile(int directory, const std::string& name, std::size_t maxBytes, std::string& content);

// The names in a directory but "." and "..", sorted by bytes; false with errno set.
bool listDirectory(int directory, std::vector<std::string>& names);

// fsync(), EINTR retried.
bool syncFile(int fd);

// Removes `name` and, where it is a directory, all below it; follows no links. True when nothing of it is left, also
// when there was nothing; else errno is set.
bool removeTree(int directory, const std::string& name);

}  // namespace jxinstall
