#include "platform/linux/jxapp/disk_space.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <set>
#include <string>

#include "base/file_io.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/file.h"

namespace jxinstall {
namespace {

// The application's folder and all those below it.
std::uint64_t countDirectories(const Package& package) {
  std::set<std::string> directories;
  for (const auto& [path, digest] : package.manifest.files) {
    for (std::size_t end = path.find('/'); end != std::string::npos; end = path.find('/', end + 1)) {
      directories.insert(path.substr(0, end));
    }
  }
  return directories.size() + 1;
}

[[noreturn]] void failWith(const char* what, std::uint64_t needed, std::uint64_t free) {
  throw Failure("needs " + std::to_string(needed) + what + " on the disk, " + std::to_string(free) + " are free");
}

}  // namespace

void checkDiskSpace(int directory, const Package& package) {
  struct statvfs disk {};
  if (fstatvfs(directory, &disk) != 0) throw Failure("the free space cannot be told: " + base::errorText(errno));
  const std::uint64_t block = disk.f_frsize != 0 ? disk.f_frsize : 1;
  const std::uint64_t directories = countDirectories(package);
  std::uint64_t blocks = directories;
  std::uint64_t files = directories;
  for (const ZipEntry& entry : package.index.entries) {
    if (entry.directory) continue;
    blocks += (entry.size + block - 1) / block;
    ++files;
  }
  if (blocks > disk.f_bavail) failWith(" bytes", blocks * block, std::uint64_t{disk.f_bavail} * block);
  // A file system that counts none has no bound.
  if (disk.f_files != 0 && files > disk.f_favail) failWith(" file entries", files, disk.f_favail);
}

}  // namespace jxinstall
