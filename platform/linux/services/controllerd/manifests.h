// The applications that are installed, as their manifests tell.
#pragma once

#include <string>
#include <vector>

namespace controllerd {

// A line each: "NAME VERSION" for a manifest that can be read, in the order of the names' bytes, and then
// "Error: apps/NAME/manifest.json: REASON" for each that cannot. Bytes outside printable ASCII are shown as "?", so
// that a line is a line. Empty where nothing is installed. `root` is the platform's root; blocks on its files.
[[nodiscard]] std::vector<std::string> scanManifests(const std::string& root);

}  // namespace controllerd
