// What lies in the installer's source directory, from one start of the program to the next.
#pragma once

#include "base/descriptor.h"

// Held while packages are received and until they have been installed: a second start of the program, by hand beside a
// service, then takes nothing away from them. Does not wait; any number at a time. Without a directory, or a descriptor
// for it, nothing is held.
class SourceDirectoryUse {
 public:
  SourceDirectoryUse();
  SourceDirectoryUse(const SourceDirectoryUse&) = delete;
  SourceDirectoryUse& operator=(const SourceDirectoryUse&) = delete;
  ~SourceDirectoryUse() = default;

 private:
  base::Descriptor directory_;  // none: nothing is held
};

// Removes every archive upload-N.zip. For the program's start: what lies there then was left by an end that cut off a
// reception or an installation, and nobody waits for it any more. Links and folders of such names stay, and so does
// what cannot be removed. While another process holds the directory, does nothing.
void removeLeftArchives();
