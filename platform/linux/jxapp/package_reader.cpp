#include "platform/linux/jxapp/package_reader.h"

#include <archive.h>
#include <archive_entry.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "base/file_io.h"
#include "base/text.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/file.h"

namespace jxinstall {
namespace {

constexpr std::size_t kBlockBytes = std::size_t{64} * 1024;

[[noreturn]] void failWith(archive* reader, const std::string& where) {
  const char* const reason = archive_error_string(reader);
  throw Failure(where + "cannot be unpacked: " + base::quotedPrintable(reason != nullptr ? reason : "unknown reason"));
}

}  // namespace

PackageReader::PackageReader(int fd)
    : archive_(archive_read_new(), [](archive* reader) { archive_read_free(reader); }) {
  if (!archive_) throw std::bad_alloc();
  if (lseek(fd, 0, SEEK_SET) != 0) throw Failure("cannot be read: " + base::errorText(errno));
  // The reader that goes by the central directory, the one that was checked.
  if (archive_read_support_format_zip_seekable(archive_.get()) != ARCHIVE_OK ||
      archive_read_open_fd(archive_.get(), fd, kBlockBytes) != ARCHIVE_OK) {
    failWith(archive_.get(), "");
  }
}

void PackageReader::next(const ZipEntry& entry) {
  archive_entry* found = nullptr;
  const std::string where = base::quotedPrintable(entry.name) + ": ";
  if (archive_read_next_header(archive_.get(), &found) != ARCHIVE_OK) failWith(archive_.get(), where);
  const char* const path = archive_entry_pathname(found);
  const auto type = entry.directory ? AE_IFDIR : AE_IFREG;
  if (path == nullptr || path != (entry.directory ? entry.name + '/' : entry.name) ||
      archive_entry_filetype(found) != type || archive_entry_hardlink(found) != nullptr ||
      archive_entry_symlink(found) != nullptr) {
    throw Failure(where + "is another entry to another reader");
  }
}

void PackageReader::unpack(const ZipEntry& entry, const ContentSink& sink) {
  std::vector<char> block(kBlockBytes);
  std::uint64_t total = 0;
  const std::string where = base::quotedPrintable(entry.name) + ": ";
  for (;;) {
    const la_ssize_t got = archive_read_data(archive_.get(), block.data(), block.size());
    if (got < 0) failWith(archive_.get(), where);
    if (got == 0) break;
    total += static_cast<std::uint64_t>(got);
    if (total > entry.size) break;
    sink(block.data(), static_cast<std::size_t>(got));
  }
  if (total != entry.size) {
    throw Failure(where + "unpacks to " + (total > entry.size ? "more than " : std::to_string(total) + " of ") +
                  std::to_string(entry.size) + " bytes");
  }
}

}  // namespace jxinstall
