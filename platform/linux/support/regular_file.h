// Reading a file whose kind and size nobody vouches for.
#pragma once

#include <cstddef>
#include <string>

namespace jxplatform {

// Reads the whole of the file `path`, which may be a link to it, into `content`. False with errno, and `content` as it
// was, when it cannot be read, is a directory (EISDIR) or anything else that is not a regular file (EINVAL), or has more
// than `maxBytes` (EFBIG). Blocks on the disk alone: never on a FIFO, a device or an endless file.
[[nodiscard]] bool readRegularFile(const std::string& path, std::size_t maxBytes, std::string& content);

}  // namespace jxplatform
