// Any bytes as a package: refused with a line of printable text, or each of its entries unpacks to the size that was
// announced. What does not begin like an archive is read as a manifest.
#include <sys/mman.h>

#include <algorithm>

#include "base/descriptor.h"
#include "base/file_io.h"
#include "fuzz/input.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/package.h"
#include "platform/linux/jxapp/package_reader.h"

namespace {

constexpr std::uint64_t kMuch = std::uint64_t{1} << 20U;

base::Descriptor memoryFile(const std::string& bytes) {
  base::Descriptor file(memfd_create("package", MFD_CLOEXEC));
  require(file && base::writeAll(file.get(), bytes));
  return file;
}

std::uint32_t checksum(const char* data, std::size_t size) {
  std::uint32_t crc = 0xFFFFFFFFU;
  for (std::size_t i = 0; i < size; ++i) {
    crc ^= static_cast<unsigned char>(data[i]);
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1U ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
  }
  return ~crc;
}

std::size_t little(const std::string& bytes, std::size_t at, std::size_t count) {
  std::size_t value = 0;
  while (count-- > 0) value = value << 8U | static_cast<unsigned char>(bytes[at + count]);
  return value;
}

// Gives every stored entry the checksum that it should have, which chance does not find.
void setChecksums(std::string& bytes) {
  for (std::size_t at = 0; (at = bytes.find("PK\x01\x02", at)) != std::string::npos; at += 4) {
    if (bytes.size() - at < 46) return;
    const std::size_t local = little(bytes, at + 42, 4);
    if (little(bytes, at + 10, 2) != 0 || local >= bytes.size() || bytes.size() - local < 30) continue;
    const std::size_t content = local + 30 + little(bytes, local + 26, 2) + little(bytes, local + 28, 2);
    const std::size_t size = little(bytes, at + 24, 4);
    if (content > bytes.size() || size > bytes.size() - content) continue;
    const std::uint32_t crc = checksum(bytes.data() + content, size);
    for (unsigned i = 0; i < 4; ++i) {
      bytes[at + 16 + i] = bytes[local + 14 + i] = static_cast<char>(crc >> (8U * i) & 0xFFU);
    }
  }
}

void checkManifest(const jxinstall::Manifest& manifest) {
  require(jxinstall::isApplicationName(manifest.name) && jxinstall::isApplicationVersion(manifest.version));
  require(manifest.description.size() <= jxinstall::kMaxDescriptionBytes);
  for (const auto& [path, digest] : manifest.files) {
    require(!path.empty() && path.front() != '/' && digest.size() == 64);
    require(("/" + path + "/").find("/../") == std::string::npos && path.find('\\') == std::string::npos);
  }
}

void unpack(int fd, const jxinstall::Package& package) {
  if (package.index.unpackedBytes > kMuch) return;  // right, but slow
  jxinstall::PackageReader reader(fd);
  for (const jxinstall::ZipEntry& entry : package.index.entries) {
    reader.next(entry);
    if (entry.directory) continue;
    std::uint64_t total = 0;
    reader.unpack(entry, [&](const char* /*data*/, std::size_t size) { total += size; });
    require(total == entry.size);
  }
}

void readAll(std::string bytes) {
  if (bytes.compare(0, 2, "PK") != 0) {
    checkManifest(jxinstall::parseManifest(bytes));
    return require(bytes.find('\0') == std::string::npos);  // no JSON has one
  }
  setChecksums(bytes);
  const base::Descriptor file = memoryFile(bytes);
  const jxinstall::Package package = jxinstall::readPackage(file.get(), bytes.size());
  require(package.index.entries.size() <= jxinstall::kMaxEntries);
  require(package.index.unpackedBytes <= jxinstall::kMaxUnpackedBytes);
  checkManifest(package.manifest);
  unpack(file.get(), package);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    readAll(std::string(reinterpret_cast<const char*>(data), size));
  } catch (const jxinstall::Failure& failure) {
    const std::string reason = failure.what();
    require(!reason.empty());
    require(std::all_of(reason.begin(), reason.end(), [](char c) { return c >= ' ' && c <= '~'; }));
  }
  return 0;
}
