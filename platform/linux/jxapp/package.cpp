#include "platform/linux/jxapp/package.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include "base/file_io.h"
#include "base/text.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/file.h"
#include "platform/linux/openssl/sha256.h"

namespace jxinstall {
namespace {

constexpr std::size_t kBlockBytes = std::size_t{64} * 1024;

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

void unpackFile(PackageReader& reader, const ZipEntry& entry, const Manifest& manifest, const ContentSink& sink) {
  jxplatform::Sha256 digest;
  reader.unpack(entry, [&](const char* data, std::size_t size) {
    digest.add(data, size);
    sink(data, size);
  });
  if (orFailure(digest.hex()) != manifest.files.at(entry.name)) {
    throw Failure(base::quotedPrintable(entry.name) + ": does not match its digest in manifest.json");
  }
}

Package checkPackage(int fd, std::uint64_t size) {
  Package package = readPackage(fd, size);
  PackageReader reader(fd);
  for (const ZipEntry& entry : package.index.entries) {
    reader.next(entry);
    if (entry.directory || package.manifest.files.count(entry.name) == 0) continue;
    unpackFile(reader, entry, package.manifest, [](const char* /*data*/, std::size_t /*size*/) {});
  }
  return package;
}

std::string digestOf(int fd, std::uint64_t size) {
  jxplatform::Sha256 digest;
  std::vector<char> block(kBlockBytes);
  std::uint64_t offset = 0;
  while (offset < size) {
    const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), size - offset));
    const std::int64_t got = base::readAt(fd, block.data(), wanted, offset);
    if (got < 0) throw Failure("cannot be read at byte " + std::to_string(offset) + ": " + base::errorText(errno));
    if (got == 0) throw Failure("became shorter while it was read");
    digest.add(block.data(), static_cast<std::size_t>(got));
    offset += static_cast<std::uint64_t>(got);
  }
  return orFailure(digest.hex());
}

}  // namespace jxinstall
