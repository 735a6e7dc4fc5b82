// The manifest.json of a package.
#pragma once

#include <string>
#include <vector>

#include "tools/jxpack/file_tree.h"

namespace jxpack {

struct PackageFacts {
  std::string name;
  std::string version;
  std::string description;
};

// Its bytes: the same for the same facts and files. Throws Problem when a fact is against the rules, the description is
// not UTF-8, or the manifest would be too long.
[[nodiscard]] std::string manifestText(const PackageFacts& facts, const std::vector<SourceFile>& files);

}  // namespace jxpack
