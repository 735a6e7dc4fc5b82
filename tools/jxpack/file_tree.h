// The files that go into a package.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace jxpack {

struct SourceFile {
  std::string path;    // below the folder, as it stands in the package
  std::string digest;  // SHA-256, 64 lower-case hex digits
  std::uint64_t size = 0;
  bool executable = false;
};

// All files below `folder`, by path, with their digests. Throws Problem when there is none, one cannot be read, or the
// installer would not take it: a link, a device, an empty directory, a path against the rules, too many or too much.
// The file `output`, where it exists, must not be among them.
[[nodiscard]] std::vector<SourceFile> readTree(const std::string& folder, const std::string& output);

// Hands the content of `folder`/`file.path` to `sink` piece by piece. Throws Problem when it cannot be read or is no
// longer what the digest says.
void readContent(const std::string& folder, const SourceFile& file,
                 const std::function<void(const char* data, std::size_t size)>& sink);

}  // namespace jxpack
