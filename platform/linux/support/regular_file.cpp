#include "platform/linux/support/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace jxplatform {
namespace {

int openRegular(const std::string& path) {
  // Without the flag a FIFO would be waited for that nobody opens at its other end.
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  struct stat status {};
  if (fd < 0 || (fstat(fd, &status) == 0 && S_ISREG(status.st_mode))) return fd;
  close(fd);
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return -1;
}

// To its end, wherever the file says that it is: it may grow, and some have a size of 0.
bool readAll(int fd, std::size_t maxBytes, std::string& content) {
  constexpr std::size_t kBlockBytes = 4096;
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
  const int fd = openRegular(path);
  if (fd < 0) return false;
  std::string text;
  const bool isWhole = readAll(fd, maxBytes, text);
  const int error = errno;
  close(fd);
  errno = error;
  if (isWhole) content = std::move(text);
  return isWhole;
}

}  // namespace jxplatform
