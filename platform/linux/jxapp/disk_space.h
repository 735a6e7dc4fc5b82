// Whether a package fits on the disk.
#pragma once

#include "platform/linux/jxapp/package.h"

namespace jxinstall {

// Throws Failure with the numbers when the file system of `directory` lacks the free bytes, counted in its blocks, or
// the free file entries for the package. What others take meanwhile is noticed when it is written.
void checkDiskSpace(int directory, const Package& package);

}  // namespace jxinstall
