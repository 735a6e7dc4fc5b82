// Whole reads, writes and flushes on a descriptor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace base {

// Reads up to `size` bytes at `offset`, EINTR retried; the number read, less than `size` only at the end of the file,
// or -1 with errno. The descriptor stays where it is. Blocks as pread() does.
[[nodiscard]] std::int64_t readAt(int fd, void* buffer, std::size_t size, std::uint64_t offset);

// Writes all of `bytes`, EINTR retried. True when everything went out; else false with errno, and `written`, where it
// is given, tells how many bytes did. Blocks as write() does.
[[nodiscard]] bool writeAll(int fd, std::string_view bytes, std::size_t* written = nullptr);

// fsync(), EINTR retried; false with errno. Blocks until the disk has it.
[[nodiscard]] bool syncFile(int fd);

// Flushes the folder that holds `path` (the current one where it names none), so that a file made, renamed or removed
// in it survives a power failure. False with errno. Blocks until the disk has it.
[[nodiscard]] bool syncFolderOf(const std::string& path);

// The message of an errno value, in English whatever the locale.
[[nodiscard]] std::string errorText(int error);

}  // namespace base
