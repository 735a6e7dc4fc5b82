// Directories for a file that is to be made.
#pragma once

#include <string>

// Makes every missing directory above the file `path`, with the modes that the process's mask leaves. True when the
// directory of the file is there, or `path` names none; false for a file right below the root, whose directory has no
// name of its own in `path`. Directories made stay, also after a failure.
[[nodiscard]] bool makeParentDirs(const std::string& path);
