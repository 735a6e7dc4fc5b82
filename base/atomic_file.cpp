#include "base/atomic_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "base/file_io.h"

namespace base {
namespace {

// None with errno.
Descriptor createAnew(const std::string& path, mode_t mode) {
  if (unlink(path.c_str()) != 0 && errno != ENOENT) return {};
  return Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
}

}  // namespace

AtomicFile::AtomicFile(std::string path, const std::string& suffix, mode_t mode)
    : path_(std::move(path)), draftPath_(path_ + suffix), draft_(createAnew(draftPath_, mode)), hasDraft_(draft_) {}

AtomicFile::~AtomicFile() {
  if (!hasDraft_) return;
  const int before = errno;
  unlink(draftPath_.c_str());
  errno = before;
}

bool AtomicFile::commit(Flush flush) {
  if (flush == Flush::kYes && !syncFile(draft_.get())) return false;
  // Some file systems tell of a full disk no earlier than here.
  if (!draft_.close() || std::rename(draftPath_.c_str(), path_.c_str()) != 0) return false;
  hasDraft_ = false;
  return true;
}

bool replaceFile(const std::string& path, std::string_view content, Flush flush, const std::string& suffix,
                 mode_t mode) {
  AtomicFile file(path, suffix, mode);
  return file && writeAll(file.fd(), content) && file.commit(flush);
}

}  // namespace base
