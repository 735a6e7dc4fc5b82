#include "tools/jxpush/common/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <vector>

#include "base/file_io.h"
#include "platform/linux/openssl/sha256.h"
#include "tools/jxpush/common/problem.h"

namespace jxpush {

namespace {

constexpr std::size_t kPieceSize = 65536;

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
  throw Problem(ExitCode::kInput, path + ": " + reason);
}

struct stat statusOf(int fd, const std::string& path) {
  struct stat status {};
  if (fstat(fd, &status) != 0) fail(path, base::errorText(errno));
  return status;
}

}  // namespace

// Not to block on a pipe, which is refused below.
InputFile::InputFile(const std::string& path)
    : path_(path), name_(path.substr(path.rfind('/') + 1)), fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  if (!fd_) fail(path, base::errorText(errno));
  const struct stat status = statusOf(fd_.get(), path);
  if (!S_ISREG(status.st_mode)) fail(path, "not a regular file");
  size_ = static_cast<std::uint64_t>(status.st_size);
  changedSeconds_ = status.st_mtim.tv_sec;
  changedNanoseconds_ = status.st_mtim.tv_nsec;
}

void InputFile::readDigest(const std::function<bool()>& stopped) {
  const auto goOn = [&stopped] {
    if (stopped && stopped()) throw Problem(ExitCode::kInterrupted, "interrupted before anything was sent");
  };
  std::vector<unsigned char> piece(kPieceSize);
  jxplatform::Sha256 digest;
  for (std::uint64_t at = 0; at < size_;) {
    goOn();
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), size_ - at));
    read(at, piece.data(), size);
    digest.add(piece.data(), size);
    at += size;
  }
  goOn();
  const std::optional<std::string> hex = digest.hex();
  if (!hex) throw Problem(ExitCode::kGaveUp, "libcrypto cannot compute SHA-256");
  sha256_ = *hex;
}

void InputFile::read(std::uint64_t offset, void* data, std::size_t size) const {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got =
        pread(fd_.get(), static_cast<char*>(data) + done, size - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail(path_, base::errorText(errno));
    if (got == 0) fail(path_, "became shorter while it was read");
    done += static_cast<std::size_t>(got);
  }
}

void InputFile::checkUnchanged() const {
  const struct stat status = statusOf(fd_.get(), path_);
  const bool same = static_cast<std::uint64_t>(status.st_size) == size_ && status.st_mtim.tv_sec == changedSeconds_ &&
                    status.st_mtim.tv_nsec == changedNanoseconds_;
  if (!same) fail(path_, "changed while it was sent");
}

}  // namespace jxpush
