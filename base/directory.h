// What is in a directory.
#pragma once

#include <string>
#include <vector>

namespace base {

// Adds the names in the directory behind `directory` but "." and ".." to `names`, and sorts all of them by bytes. False
// with errno when not all could be read; what could stands in `names`. The descriptor stays where it is. Blocks on the
// disk.
[[nodiscard]] bool listDirectory(int directory, std::vector<std::string>& names);

// The same of the directory `path`, which may be a link to one.
[[nodiscard]] bool listDirectory(const std::string& path, std::vector<std::string>& names);

}  // namespace base
