// The settings in a file, across restarts.
#pragma once

#include <string>

#include "platform/linux/services/cloudproxyd/settings.h"

namespace cloudproxyd {

// The settings in the file `path`; a member that the file does not have, and all of them where there is no such file,
// have their values in `otherwise`. Throws Failure when the file cannot be read or is none of settings.
[[nodiscard]] Settings loadSettings(const std::string& path, const Settings& otherwise);

// Writes `settings` to the file `path`, which has the old or the new content at any moment, power failures included.
// Throws Failure when that cannot be done, with the old content. Blocks until it is on the disk. Where the folder's
// change cannot be forced there, the new content holds all the same, and a line on standard error tells it.
void saveSettings(const std::string& path, const Settings& settings);

}  // namespace cloudproxyd
