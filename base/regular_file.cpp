#include "base/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "base/descriptor.h"

namespace base {
namespace {

bool isRegular(int fd) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return false;
  if (S_ISREG(status.st_mode)) return true;
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return false;
}

// To its end, wherever the file says that it is: it may grow, and some have a size of 0.
bool readToEnd(int fd, std::size_t maxBytes, std::string& content) {
  constexpr std::size_t kBlockBytes = std::size_t{16} * 1024;
  std::array<char, kBlockBytes> block{};
  for (;;) {
    const ssize_t got = read(fd, block.data(), block.size());
    if (got == 0) return true;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    content.append(block.data(), static_cast<std::size_t>(got));
    if (content.size() <= maxBytes) continue;
    errno = EFBIG;
    return false;
  }
}

}  // namespace

bool readRegularFile(const std::string& path, std::size_t maxBytes, std::string& content) {
  // Without O_NONBLOCK a FIFO would be waited for that nobody opens at its other end.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  return file && readRegularFile(file.get(), maxBytes, content);
}

bool readRegularFile(int fd, std::size_t maxBytes, std::string& content) {
  std::string text;
  if (!isRegular(fd) || !readToEnd(fd, maxBytes, text)) return false;
  content = std::move(text);
  return true;
}

}  // namespace base
