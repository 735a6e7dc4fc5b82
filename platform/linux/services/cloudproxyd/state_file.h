// The settings in a file, across restarts.
#pragma once

#include <string>

#include "platform/linux/services/cloudproxyd/settings.h"

namespace cloudproxyd {

// Reads `settings` from the file `path`; a member that the file does not have keeps its value. Returns why that could
// not be done, with `settings` as they were; empty on success and when there is no such file.
std::string loadSettings(const std::string& path, Settings& settings);

// Writes `settings` to the file `path`, which has the old or the new content at any moment, power failures included.
// Returns why that could not be done, with the old content; empty on success. Blocks until it is on the disk. Where the
// folder's change cannot be forced there, the new content holds all the same, and a line on standard error tells it.
std::string saveSettings(const std::string& path, const Settings& settings);

}  // namespace cloudproxyd
