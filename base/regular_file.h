// Reading a file whose kind and size nobody vouches for.
#pragma once

#include <cstddef>
#include <string>

namespace base {

// Reads the whole of the file `path`, which may be a link to it, into `content`. False with errno, and `content` as it
// was, when it cannot be read, is a directory (EISDIR) or anything else that is not a regular file (EINVAL), or has
// more than `maxBytes` (EFBIG). Blocks on the disk alone: never on a FIFO, a device or an endless file.
[[nodiscard]] bool readRegularFile(const std::string& path, std::size_t maxBytes, std::string& content);

// The same of the file behind `fd`, from where it stands to its end; O_NONBLOCK keeps its opening from blocking.
[[nodiscard]] bool readRegularFile(int fd, std::size_t maxBytes, std::string& content);

}  // namespace base
