// The files that go into a package.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/jxpack/exclusions.h"

namespace jxpack {

struct SourceFile {
  std::string path;    // below the folder, as it stands in the package
  std::string digest;  // SHA-256, 64 lower-case hex digits
  std::uint64_t size = 0;
  bool executable = false;
};

// A file or folder that stays out of the package, and why.
struct LeftOut {
  std::string path;  // below the folder; a folder's with a slash at its end
  std::string reason;
};

struct Tree {
  std::vector<SourceFile> files;  // by path
  std::vector<LeftOut> leftOut;   // by path
};

struct TreeRules {
  Exclusions exclusions;
  std::string output;  // the package to be made; where it exists it is left out
  bool allowPrivateKeys = false;
};

// The files below `folder` that the rules let in, with their digests. Throws Problem when there is none, one cannot be
// read or holds a private key that is not allowed, or the installer would not take it: a link, a device, an empty
// directory, a path against the rules, too many or too much.
[[nodiscard]] Tree readTree(const std::string& folder, const TreeRules& rules);

// Hands the content of `folder`/`file.path` to `sink` piece by piece. Throws Problem when it cannot be read or is no
// longer what the digest says.
void readContent(const std::string& folder, const SourceFile& file,
                 const std::function<void(const char* data, std::size_t size)>& sink);

}  // namespace jxpack
