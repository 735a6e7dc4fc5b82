// A package archive that was read and found consistent, before anything of it is written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/linux/jxapp/manifest.h"
#include "platform/linux/jxapp/package_reader.h"
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

// Unpacks the entry that `reader` stepped to, one of the manifest's files, into `sink`. Throws Failure when it cannot
// be unpacked or does not match its digest, of which the sink may have had a part, and whatever the sink throws.
void unpackFile(PackageReader& reader, const ZipEntry& entry, const Manifest& manifest, const ContentSink& sink);

// Reads the package as readPackage() does and then every file's content: all that can be said of a package without its
// signature and without a terminal. Throws Failure.
Package checkPackage(int fd, std::uint64_t size);

// The SHA-256 of the `size` bytes of the file behind `fd` in hex digits. Throws Failure when they cannot be read, or
// are fewer.
std::string digestOf(int fd, std::uint64_t size);

}  // namespace jxinstall
