// File-system calls of the installer: opening without following links, removal of a tree.
#pragma once

#include <sys/types.h>

#include <string>

#include "base/descriptor.h"

namespace jxinstall {

// openat() with O_CLOEXEC and O_NOFOLLOW added, EINTR retried.
[[nodiscard]] base::Descriptor openAt(int directory, const std::string& name, int flags, mode_t mode = 0);

// Removes `name` and, where it is a directory, all below it; follows no links. True when nothing of it is left, also
// when there was nothing; else errno is set.
[[nodiscard]] bool removeTree(int directory, const std::string& name);

}  // namespace jxinstall
