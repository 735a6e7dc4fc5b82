#include "base/file_io.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "base/descriptor.h"

namespace base {

std::int64_t readAt(int fd, void* buffer, std::size_t size, std::uint64_t offset) {
  auto* const bytes = static_cast<char*>(buffer);
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = pread(fd, bytes + done, size - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return static_cast<std::int64_t>(done);
}

bool writeAll(int fd, std::string_view bytes, std::size_t* written) {
  std::size_t done = 0;
  bool good = true;
  while (good && done < bytes.size()) {
    const ssize_t put = write(fd, bytes.data() + done, bytes.size() - done);
    if (put < 0) {
      good = errno == EINTR;
    } else {
      done += static_cast<std::size_t>(put);
    }
  }
  if (written != nullptr) *written = done;
  return good;
}

bool syncFile(int fd) {
  int result = -1;
  do {
    result = fsync(fd);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

bool syncFolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return opened && syncFile(opened.get());
}

std::string errorText(int error) { return std::generic_category().message(error); }

}  // namespace base
