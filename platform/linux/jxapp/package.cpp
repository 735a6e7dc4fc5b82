#include "platform/linux/jxapp/package.h"

#include <algorithm>

#include "base/text.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/package_reader.h"

namespace jxinstall {
namespace {

std::string contentOf(PackageReader& reader, const ZipEntry& entry, std::size_t maxBytes) {
  if (entry.size > maxBytes) {
    throw Failure(base::quotedPrintable(entry.name) + ": has " + std::to_string(entry.size) + " bytes, at most " +
                  std::to_string(maxBytes) + " are allowed");
  }
  std::string content;
  reader.unpack(entry, [&](const char* data, std::size_t size) { content.append(data, size); });
  return content;
}

void readManifestAndSignature(int fd, Package& package) {
  PackageReader reader(fd);
  for (const ZipEntry& entry : package.index.entries) {
    reader.next(entry);
    if (entry.directory) continue;
    if (entry.name == kManifestName) package.manifestBytes = contentOf(reader, entry, kMaxManifestBytes);
    if (entry.name == kSignatureName) package.signature = contentOf(reader, entry, kMaxSignatureBytes);
  }
}

void checkListing(const Package& package) {
  std::size_t listed = 0;
  for (const ZipEntry& entry : package.index.entries) {
    if (entry.directory || entry.name == kManifestName || entry.name == kSignatureName) continue;
    if (package.manifest.files.count(entry.name) == 0) {
      throw Failure(base::quotedPrintable(entry.name) + ": is not listed in manifest.json");
    }
    ++listed;
  }
  if (listed == package.manifest.files.size()) return;
  for (const auto& [path, digest] : package.manifest.files) {
    const auto isIt = [&, name = path](const ZipEntry& entry) { return !entry.directory && entry.name == name; };
    if (std::none_of(package.index.entries.begin(), package.index.entries.end(), isIt)) {
      throw Failure(base::quotedPrintable(path) + ": is listed in manifest.json but not in the archive");
    }
  }
}

}  // namespace

Package readPackage(int fd, std::uint64_t size) {
  Package package;
  package.index = readZipIndex(fd, size);
  const auto isManifest = [](const ZipEntry& entry) { return !entry.directory && entry.name == kManifestName; };
  if (std::none_of(package.index.entries.begin(), package.index.entries.end(), isManifest)) {
    throw Failure("has no manifest.json at its root");
  }
  readManifestAndSignature(fd, package);
  package.manifest = parseManifest(package.manifestBytes);
  checkListing(package);
  return package;
}

}  // namespace jxinstall
