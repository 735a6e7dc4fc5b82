#include "tests/unit/base/wrapped_calls.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

// The names of the calls that have offsets of 64 bits where `long` has 32.
#if __SIZEOF_POINTER__ == 4
#define JX_WRAP(call) __wrap_##call##64
#define JX_REAL(call) __real_##call##64
#else
#define JX_WRAP(call) __wrap_##call
#define JX_REAL(call) __real_##call
#endif

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the linker's names of a wrapped call.
extern "C" {
int __real_close(int fd);
ssize_t JX_REAL(pread)(int fd, void* buffer, size_t size, off_t offset);
dirent* JX_REAL(readdir)(DIR* stream);
DIR* __real_fdopendir(int fd);
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
  const int error = state().interrupts.front();
  state().interrupts.erase(state().interrupts.begin());
  if (error != 0) errno = error;
  return error != 0;
}

std::size_t pieceOf(std::size_t size) {
  return state().largestPiece == 0 ? size : std::min(size, state().largestPiece);
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

extern "C" ssize_t JX_WRAP(pread)(int fd, void* buffer, size_t size, off_t offset) {
  return interrupted() ? -1 : JX_REAL(pread)(fd, buffer, pieceOf(size), offset);
}

extern "C" dirent* JX_WRAP(readdir)(DIR* stream) {
  if (state().listingError == 0) return JX_REAL(readdir)(stream);
  errno = std::exchange(state().listingError, 0);
  return nullptr;
}

extern "C" DIR* __wrap_fdopendir(int fd) {
  if (state().folderError == 0) return __real_fdopendir(fd);
  errno = state().folderError;
  return nullptr;
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
  return __real_write(fd, bytes, pieceOf(size));
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
