// What the installer accepts, in its own words, so that no package is made that it would refuse.
#pragma once

#include <string>
#include <vector>

namespace jxpack {

// Why the installer would refuse the manifest; empty when it would not.
[[nodiscard]] std::string manifestProblem(const std::string& manifest);

// Why no file of a package may have this path; empty when it may.
[[nodiscard]] std::string pathProblem(const std::string& path);

// Why the paths, each of which may stand in a package, may not do so together; empty when they may.
[[nodiscard]] std::string pathsProblem(const std::vector<std::string>& paths);

}  // namespace jxpack
