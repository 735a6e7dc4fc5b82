#include "shell/source_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <jxapp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>

namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

base::Descriptor openSourceDirectory() {
  return base::Descriptor(open(jxapp::jxInstallSourceDir(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// As both roads name what they store, and as the installer takes it.
bool isArchiveName(const char* name) {
  constexpr std::size_t kPrefixSize = 7;
  if (std::strncmp(name, "upload-", kPrefixSize) != 0) return false;
  const char* const number = name + kPrefixSize;
  const std::size_t digits = std::strspn(number, "0123456789");
  return digits > 0 && std::strcmp(number + digits, ".zip") == 0;
}

bool isFile(int directory, const char* name) {
  struct stat status {};
  return fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

// The lock is the directory's own, so that nothing lies there but archives, and it ends with the process, however that
// ends.
SourceDirectoryUse::SourceDirectoryUse() : directory_(openSourceDirectory()) {
  if (directory_) flock(directory_.get(), LOCK_SH | LOCK_NB);
}

void removeLeftArchives() {
  base::Descriptor opened = openSourceDirectory();
  if (!opened) return;
  const std::unique_ptr<DIR, CloseDirectory> directory(fdopendir(opened.get()));
  if (!directory) return;
  const int fd = opened.release();  // the stream has it
  if (flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return;
  while (const dirent* const entry = readdir(directory.get())) {
    if (isArchiveName(entry->d_name) && isFile(fd, entry->d_name)) unlinkat(fd, entry->d_name, 0);
  }
}
