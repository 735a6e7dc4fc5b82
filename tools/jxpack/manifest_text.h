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

// The bytes of a manifest that asks for the removal of the application `name`. Throws Problem when that is no name.
[[nodiscard]] std::string removalText(const std::string& name);

}  // namespace jxpack
