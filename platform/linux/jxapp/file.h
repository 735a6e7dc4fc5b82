// File-system calls of the installer: opening without following links, whole reads, removal of a tree.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/descriptor.h"

namespace jxinstall {

// openat() with O_CLOEXEC and O_NOFOLLOW added, EINTR retried.
[[nodiscard]] base::Descriptor openAt(int directory, const std::string& name, int flags, mode_t mode = 0);

// Reads up to `size` bytes at `offset`; the number read, less than `size` only at the end of the file, or -1 with
// errno.
[[nodiscard]] std::int64_t readAt(int fd, char* buffer, std::size_t size, std::uint64_t offset);

// The names in a directory but "." and "..", sorted by bytes; false with errno set.
[[nodiscard]] bool listDirectory(int directory, std::vector<std::string>& names);

// Removes `name` and, where it is a directory, all below it; follows no links. True when nothing of it is left, also
// when there was nothing; else errno is set.
[[nodiscard]] bool removeTree(int directory, const std::string& name);

}  // namespace jxinstall
