#include "shell/source_directory.h"

#include <fcntl.h>
#include <jxapp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "base/directory.h"
#include "base/ignore.h"

namespace {

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
  const base::Descriptor directory = openSourceDirectory();
  if (!directory) return;
  if (flock(directory.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return;
  std::vector<std::string> names;
  // What cannot be listed is left for the next start.
  base::ignore(base::listDirectory(directory.get(), names));
  for (const std::string& name : names) {
    if (isArchiveName(name.c_str()) && isFile(directory.get(), name.c_str()))
      unlinkat(directory.get(), name.c_str(), 0);
  }
}
