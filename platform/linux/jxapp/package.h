// A package archive that was read and found consistent, before anything of it is written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/linux/jxapp/manifest.h"
#include "platform/linux/jxapp/zip_index.h"

namespace jxinstall {

constexpr std::size_t kMaxSignatureBytes = std::size_t{64} * 1024;

struct Package {
  ZipIndex index;
  Manifest manifest;
  std::string manifestBytes;
  std::optional<std::string> signature;  // the bytes of manifest.json.p7s
};

// Reads index, manifest and signature of the archive of `size` bytes behind `fd`, and checks that the manifest lists
// the archive's files and no others. The files' content is not read yet. Throws Failure.
[[nodiscard]] Package readPackage(int fd, std::uint64_t size);

}  // namespace jxinstall
