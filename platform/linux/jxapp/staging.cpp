#include "platform/linux/jxapp/staging.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <set>

#include "base/file_io.h"
#include "base/text.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/file.h"
#include "platform/linux/jxapp/package_reader.h"

namespace jxinstall {
namespace {

constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kFileMode = 0644;
constexpr mode_t kProgramMode = 0755;

[[noreturn]] void failWith(const std::string& path, const std::string& what) {
  const std::string reason = base::errorText(errno);
  throw Failure(base::quotedPrintable(path) + ": " + what + ": " + reason);
}

class OutputFile {
 public:
  OutputFile(int directory, const std::string& path, std::uint64_t size, mode_t mode)
      : path_(path), size_(size), file_(openAt(directory, path, O_WRONLY | O_CREAT | O_EXCL, mode)) {
    if (!file_ || fchmod(file_.get(), mode) != 0) failWith(path_, "cannot be created");
  }

  void add(const char* data, std::size_t size) {
    std::size_t put = 0;
    const bool done = base::writeAll(file_.get(), {data, size}, &put);
    written_ += put;
    if (!done) {
      failWith(path_,
               "cannot be written after " + std::to_string(written_) + " of " + std::to_string(size_) + " bytes");
    }
  }

  void finish() {
    if (!base::syncFile(file_.get())) failWith(path_, "cannot be brought to the disk");
  }

 private:
  std::string path_;
  std::uint64_t size_;
  std::uint64_t written_ = 0;
  base::Descriptor file_;
};

class Unpacker {
 public:
  Unpacker(int directory, const Package& package) : directory_(directory), package_(package) {}

  void run(int fd) {
    PackageReader reader(fd);
    for (const ZipEntry& entry : package_.index.entries) {
      reader.next(entry);
      if (!entry.directory && package_.manifest.files.count(entry.name) != 0) unpackFile(reader, entry);
    }
    writeText(kManifestName, package_.manifestBytes);
    if (package_.signature) writeText(kSignatureName, *package_.signature);
    syncDirectories();
  }

 private:
  void unpackFile(PackageReader& reader, const ZipEntry& entry) {
    makeParents(entry.name);
    OutputFile file(directory_, entry.name, entry.size, entry.executable ? kProgramMode : kFileMode);
    jxinstall::unpackFile(reader, entry, package_.manifest,
                          [&](const char* data, std::size_t size) { file.add(data, size); });
    file.finish();
  }

  // Only directories that were made here are walked through, so no component can be a link.
  void makeParents(const std::string& path) {
    for (std::size_t end = path.find('/'); end != std::string::npos; end = path.find('/', end + 1)) {
      const std::string parent = path.substr(0, end);
      if (!made_.insert(parent).second) continue;
      if (mkdirat(directory_, parent.c_str(), kDirectoryMode) != 0 ||
          fchmodat(directory_, parent.c_str(), kDirectoryMode, 0) != 0) {
        failWith(parent, "cannot be created");
      }
    }
  }

  void writeText(const std::string& path, const std::string& text) const {
    OutputFile file(directory_, path, text.size(), kFileMode);
    file.add(text.data(), text.size());
    file.finish();
  }

  void syncDirectories() {
    for (const std::string& path : made_) {
      const base::Descriptor made = openAt(directory_, path, O_RDONLY | O_DIRECTORY);
      if (!made || !base::syncFile(made.get())) failWith(path, "cannot be brought to the disk");
    }
    if (!base::syncFile(directory_)) failWith(package_.manifest.name, "cannot be brought to the disk");
  }

  int directory_;
  const Package& package_;
  std::set<std::string> made_;
};

}  // namespace

void unpackInto(int directory, int fd, const Package& package) { Unpacker(directory, package).run(fd); }

}  // namespace jxinstall
