// Whole writes and flushes on a descriptor.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace base {

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
