#include "platform/linux/jxapp/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

namespace jxinstall {
namespace {

using Directory = std::unique_ptr<DIR, int (*)(DIR*)>;

// Takes a descriptor of its own, since closedir() closes the one it was given.
Directory openStream(int directory) {
  Descriptor copy = openAt(directory, ".", O_RDONLY | O_DIRECTORY);
  DIR* const stream = copy ? fdopendir(copy.get()) : nullptr;
  if (stream != nullptr) copy.release();
  return {stream, closedir};
}

bool removeContent(int directory) {
  std::vector<std::string> names;
  if (!listDirectory(directory, names)) return false;
  return std::all_of(names.begin(), names.end(), [&](const std::string& name) { return removeTree(directory, name); });
}

}  // namespace

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

Descriptor::~Descriptor() {
  if (fd_ < 0) return;
  const int before = errno;
  close(fd_);
  errno = before;
}

int Descriptor::release() { return std::exchange(fd_, -1); }

Descriptor openAt(int directory, const std::string& name, int flags, mode_t mode) {
  int fd = -1;
  do {
    fd = openat(directory, name.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, mode);
  } while (fd < 0 && errno == EINTR);
  return Descriptor(fd);
}

std::string errorText(int error) { return std::generic_category().message(error); }

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

bool writeAll(int fd, const char* data, std::size_t size, std::size_t& written) {
  written = 0;
  while (written < size) {
    const ssize_t put = write(fd, data + written, size - written);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return false;
    written += static_cast<std::size_t>(put);
  }
  return true;
}

bool readFile(int directory, const std::string& name, std::size_t maxBytes, std::string& content) {
  const Descriptor file = openAt(directory, name, O_RDONLY | O_NONBLOCK);
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) return false;
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    return false;
  }
  if (status.st_size > static_cast<off_t>(maxBytes)) {
    errno = EFBIG;
    return false;
  }
  content.resize(static_cast<std::size_t>(status.st_size));
  const std::int64_t got = readAt(file.get(), content.data(), content.size(), 0);
  if (got < 0) return false;
  content.resize(static_cast<std::size_t>(got));
  return true;
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

bool syncFile(int fd) {
  int result = -1;
  do {
    result = fsync(fd);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

bool removeTree(int directory, const std::string& name) {
  if (unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT) return true;
  // A directory answers EISDIR, or EPERM on some file systems.
  if (errno != EISDIR && errno != EPERM) return false;
  const int reason = errno;
  const Descriptor content = openAt(directory, name, O_RDONLY | O_DIRECTORY);
  if (!content) {
    if (errno == ENOTDIR) errno = reason;
    return false;
  }
  return removeContent(content.get()) && unlinkat(directory, name.c_str(), AT_REMOVEDIR) == 0;
}

}  // namespace jxinstall
