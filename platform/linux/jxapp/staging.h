// A package unpacked onto the disk, beside the place where it is to stand.
#pragma once

#include "platform/linux/jxapp/package.h"

namespace jxinstall {

// Unpacks all files of the package in the archive behind `fd`, its manifest and its signature, into the empty directory
// behind `directory`, and returns when all of it is on the disk. Directories get mode 0755, files 0755 where the
// archive has an execute bit for them, else 0644, whatever the process's file mode mask. Throws Failure when a file
// does not match its digest, and for whatever the disk refuses, with the numbers; a part may have been written.
void unpackInto(int directory, int fd, const Package& package);

}  // namespace jxinstall
