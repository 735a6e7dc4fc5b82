// What a folder says of its own package: jxpackage.json and .jxignore.
#pragma once

#include <string>
#include <vector>

#include "tools/jxpack/exclusions.h"
#include "tools/jxpack/manifest_text.h"

namespace jxpack {

constexpr const char* kProjectFileName = "jxpackage.json";
constexpr const char* kIgnoreFileName = ".jxignore";

// Takes from `folder`/jxpackage.json those of the facts that are empty, and adds its patterns and those of
// `folder`/.jxignore to `exclusions`. A file that is not there says nothing. Throws Problem: exit code 3 when a file
// cannot be read, 2 when it is malformed or has a member that is not known.
void readProject(const std::string& folder, PackageFacts& facts, Exclusions& exclusions);

}  // namespace jxpack
