#include "tools/jxpack/package_writer.h"

#include <archive.h>
#include <archive_entry.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>

#include "base/file_io.h"
#include "platform/linux/jxapp/manifest.h"
#include "platform/linux/jxapp/zip_index.h"
#include "platform/linux/openssl/sha256.h"
#include "tools/jxpack/problem.h"

namespace jxpack {
namespace {

using jxinstall::kFreeUnpackedBytes;
using jxinstall::kManifestName;
using jxinstall::kMaxArchiveBytes;
using jxinstall::kMaxRatio;
using jxinstall::kMaxUnpackedBytes;
using jxinstall::kSignatureName;

constexpr unsigned kFileMode = 0644;
constexpr unsigned kProgramMode = 0755;

class ZipWriter {
 public:
  ZipWriter(int fd, const char* compression) : fd_(fd), archive_(archive_write_new(), archive_write_free) {
    if (!archive_) throw std::bad_alloc();
    check(archive_write_set_format_zip(archive_.get()) == ARCHIVE_OK &&
          archive_write_set_format_option(archive_.get(), "zip", "compression", compression) == ARCHIVE_OK &&
          archive_write_set_bytes_per_block(archive_.get(), 0) == ARCHIVE_OK &&
          archive_write_open(archive_.get(), this, nullptr, write, nullptr) == ARCHIVE_OK);
  }

  // The time stays unset: the archive then holds the earliest one that a zip archive can, in every time zone.
  void begin(const std::string& path, std::uint64_t size, unsigned mode) {
    const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(), archive_entry_free);
    if (!entry) throw std::bad_alloc();
    archive_entry_set_pathname(entry.get(), path.c_str());
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), mode);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
    check(archive_write_header(archive_.get(), entry.get()) == ARCHIVE_OK);
  }

  void add(const char* data, std::size_t size) {
    check(archive_write_data(archive_.get(), data, size) == static_cast<la_ssize_t>(size));
  }

  void addText(const std::string& path, const std::string& text) {
    begin(path, text.size(), kFileMode);
    add(text.data(), text.size());
  }

  Written finish() {
    check(archive_write_close(archive_.get()) == ARCHIVE_OK);
    const std::optional<std::string> digest = digest_.hex();
    if (!digest) throw Problem(ExitCode::kSigning, "the SHA-256 digest cannot be computed");
    return {size_, *digest};
  }

 private:
  // A failure is kept for check(): the library, told of it, would not free what its packer holds.
  static la_ssize_t write(archive* /*archive*/, void* data, const void* bytes, std::size_t size) {
    auto* const self = static_cast<ZipWriter*>(data);
    const bool put = self->error_ != 0 || base::writeAll(self->fd_, {static_cast<const char*>(bytes), size});
    if (!put) self->error_ = errno;
    self->digest_.add(bytes, size);
    self->size_ += size;
    return static_cast<la_ssize_t>(size);
  }

  void check(bool done) const {
    if (error_ != 0) {
      throw Problem(ExitCode::kFile, "the package cannot be written: " + base::errorText(error_));
    }
    if (done) return;
    const char* const reason = archive_error_string(archive_.get());
    throw Problem(ExitCode::kFile,
                  std::string("the package cannot be written: ") + (reason != nullptr ? reason : "unknown reason"));
  }

  int fd_;
  jxplatform::Sha256 digest_;
  std::uint64_t size_ = 0;
  int error_ = 0;  // the errno of the first write that failed
  std::unique_ptr<archive, int (*)(archive*)> archive_;
};

Written writeArchive(int fd, const PackageContent& content, const char* compression) {
  ZipWriter zip(fd, compression);
  zip.addText(kManifestName, content.manifest);
  if (content.signature) zip.addText(kSignatureName, *content.signature);
  for (const SourceFile& file : content.files) {
    zip.begin(file.path, file.size, file.executable ? kProgramMode : kFileMode);
    readContent(content.folder, file, [&](const char* data, std::size_t size) { zip.add(data, size); });
  }
  return zip.finish();
}

std::uint64_t unpackedBytes(const PackageContent& content) {
  std::uint64_t total = content.manifest.size() + content.signature.value_or("").size();
  for (const SourceFile& file : content.files) total += file.size;
  return total;
}

}  // namespace

Written writePackage(int fd, const PackageContent& content) {
  const std::uint64_t unpacked = unpackedBytes(content);
  Written written = writeArchive(fd, content, "deflate");
  if (unpacked > kFreeUnpackedBytes && unpacked > kMaxRatio * written.size) {
    if (ftruncate(fd, 0) != 0 || lseek(fd, 0, SEEK_SET) != 0) {
      throw Problem(ExitCode::kFile, "the package cannot be rewritten: " + base::errorText(errno));
    }
    written = writeArchive(fd, content, "store");
  }
  if (unpacked > kMaxUnpackedBytes || written.size > kMaxArchiveBytes) {
    throw Problem(ExitCode::kRefused, "the package has " + std::to_string(written.size) + " bytes, " +
                                          std::to_string(unpacked) + " unpacked; the installer takes at most " +
                                          std::to_string(kMaxArchiveBytes));
  }
  return written;
}

}  // namespace jxpack
