// The package archive.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/jxpack/file_tree.h"

namespace jxpack {

struct PackageContent {
  std::string folder;
  std::vector<SourceFile> files;
  std::string manifest;                  // the bytes of manifest.json
  std::optional<std::string> signature;  // the bytes of manifest.json.p7s
};

// What was written.
struct Written {
  std::uint64_t size = 0;
  std::string digest;  // SHA-256, 64 lower-case hex digits
};

// Writes the zip archive to the empty file behind `fd`: manifest, signature, files in their order, all with the same
// time and owner, so that the same content makes the same bytes. What would shrink beyond the installer's bound for
// packed data is stored unpacked. Throws Problem.
Written writePackage(int fd, const PackageContent& content);

}  // namespace jxpack
