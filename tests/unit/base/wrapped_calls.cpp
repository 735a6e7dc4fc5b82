#include "tests/unit/base/wrapped_calls.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the linker's names of a wrapped call.
extern "C" {
int __real_close(int fd);
int __real_fsync(int fd);
int __real_rename(const char* from, const char* to);
ssize_t __real_write(int fd, const void* bytes, size_t size);
}

namespace {

DiskCalls& state() {
  static DiskCalls calls;
  return calls;
}

bool interrupted() {
  if (state().interrupts.empty()) return false;
  errno = state().interrupts.front();
  state().interrupts.erase(state().interrupts.begin());
  return true;
}

}  // namespace

void resetDiskCalls() { state() = {}; }
DiskCalls& diskCalls() { return state(); }

extern "C" int __wrap_close(int fd) {
  const int result = __real_close(fd);
  if (state().closeError == 0) return result;
  errno = state().closeError;
  return -1;
}

extern "C" int __wrap_fsync(int fd) {
  struct stat status {};
  fstat(fd, &status);
  state().seen.emplace_back(S_ISDIR(status.st_mode) ? "fsync folder" : "fsync file");
  return interrupted() ? -1 : __real_fsync(fd);
}

extern "C" int __wrap_rename(const char* from, const char* to) {
  state().seen.emplace_back("rename");
  if (state().renameError == 0) return __real_rename(from, to);
  errno = state().renameError;
  return -1;
}

extern "C" ssize_t __wrap_write(int fd, const void* bytes, size_t size) {
  state().seen.emplace_back("write");
  if (interrupted()) return -1;
  const std::size_t most = state().largestWrite == 0 ? size : std::min(size, state().largestWrite);
  return __real_write(fd, bytes, most);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
