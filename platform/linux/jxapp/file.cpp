#include "platform/linux/jxapp/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "base/ignore.h"

namespace jxinstall {
namespace {

using Directory = std::unique_ptr<DIR, int (*)(DIR*)>;

// Takes a descriptor of its own, since closedir() closes the one it was given.
Directory openStream(int directory) {
  base::Descriptor copy = openAt(directory, ".", O_RDONLY | O_DIRECTORY);
  DIR* const stream = copy ? fdopendir(copy.get()) : nullptr;
  if (stream != nullptr) base::ignore(copy.release());  // the stream has it
  return {stream, closedir};
}

bool removeContent(int directory) {
  std::vector<std::string> names;
  if (!listDirectory(directory, names)) return false;
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

std::int64_t readAt(int fd, char* buffer, std::size_t size, std::uint64_t offset) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = pread(fd, buffer + done, size - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return static_cast<std::int64_t>(done);
}

bool listDirectory(int directory, std::vector<std::string>& names) {
  const Directory stream = openStream(directory);
  if (!stream) return false;
  errno = 0;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return errno == 0;
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
