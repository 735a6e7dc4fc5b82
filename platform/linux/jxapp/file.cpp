#include "platform/linux/jxapp/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/directory.h"

namespace jxinstall {
namespace {

bool removeContent(int directory) {
  std::vector<std::string> names;
  if (!base::listDirectory(directory, names)) return false;
  return std::all_of(names.begin(), names.end(), [&](const std::string& name) { return removeTree(directory, name); });
}

}  // namespace

base::Descriptor openAt(int directory, const std::string& name, int flags, mode_t mode) {
  int fd = -1;
  do {
    fd = openat(directory, name.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, mode);
  } while (fd < 0 && errno == EINTR);
  return base::Descriptor(fd);
}

bool removeTree(int directory, const std::string& name) {
  if (unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT) return true;
  // A directory answers EISDIR, or EPERM on some file systems.
  if (errno != EISDIR && errno != EPERM) return false;
  const int reason = errno;
  const base::Descriptor content = openAt(directory, name, O_RDONLY | O_DIRECTORY);
  if (!content) {
    if (errno == ENOTDIR) errno = reason;
    return false;
  }
  return removeContent(content.get()) && unlinkat(directory, name.c_str(), AT_REMOVEDIR) == 0;
}

}  // namespace jxinstall
