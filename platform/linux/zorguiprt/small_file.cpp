#include "platform/linux/zorguiprt/small_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace jxplatform {
namespace {

constexpr mode_t kFileMode = 0644;

bool writeAll(int fd, const std::string& content) {
  std::size_t done = 0;
  while (done < content.size()) {
    const ssize_t count = write(fd, content.data() + done, content.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace

bool replaceFile(const std::string& path, const std::string& content) {
  const std::string draft = path + "." + std::to_string(getpid());
  const int fd = open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kFileMode);
  if (fd < 0) return false;
  const bool written = writeAll(fd, content);
  const bool closed = close(fd) == 0;
  if (written && closed && std::rename(draft.c_str(), path.c_str()) == 0) return true;
  const int reason = errno;
  unlink(draft.c_str());
  errno = reason;
  return false;
}

}  // namespace jxplatform
