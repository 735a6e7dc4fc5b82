#include "tests/unit/platform/jxapp/system_calls.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>

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
int JX_REAL(fstat)(int fd, struct stat* status);
int JX_REAL(fstatvfs)(int fd, struct statvfs* disk);
int JX_REAL(open)(const char* path, int flags, ...);
int JX_REAL(openat)(int directory, const char* path, int flags, ...);
ssize_t JX_REAL(pread)(int fd, void* buffer, size_t size, off_t offset);
dirent* JX_REAL(readdir)(DIR* stream);
int __real_fchmod(int fd, mode_t mode);
int __real_fchmodat(int directory, const char* path, mode_t mode, int flags);
DIR* __real_fdopendir(int fd);
int __real_flock(int fd, int operation);
int __real_fsync(int fd);
int __real_mkdirat(int directory, const char* path, mode_t mode);
int __real_nanosleep(const timespec* time, timespec* left);
int __real_renameat(int oldDirectory, const char* oldPath, int newDirectory, const char* newPath);
long __real_syscall(long number, ...);
int __real_unlinkat(int directory, const char* path, int flags);
ssize_t __real_write(int fd, const void* bytes, size_t size);
}

namespace {

SystemCalls* active = nullptr;  // without one, the calls take no memory either

std::string pathOf(int fd) {
  if (active == nullptr) return "";
  std::array<char, 4096> path{};
  const ssize_t size = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path.data(), path.size());
  return size > 0 ? std::string(path.data(), static_cast<std::size_t>(size)) : "";
}

std::string pathOf(int directory, const char* name) { return active == nullptr ? "" : pathOf(directory) + '/' + name; }

bool refuses(const char* name, const std::string& path) { return active != nullptr && active->refuses(name, path); }

const char* lastName(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

// The name of a call and its paths.
template <class... Paths>
void note(const char* name, const Paths&... paths) {
  if (active == nullptr) return;
  std::string change = name;
  ((change += ' ', change += paths), ...);
  active->changes.push_back(change);
}

}  // namespace

SystemCalls::SystemCalls() { active = this; }
SystemCalls::~SystemCalls() { active = nullptr; }

void SystemCalls::fail(const std::string& name, int error, const std::string& ending, int skipped) {
  faults_.push_back({name, ending, error, skipped, false});
}

void SystemCalls::failAll(const std::string& name, int error, const std::string& ending) {
  faults_.push_back({name, ending, error, 0, true});
}

bool SystemCalls::refuses(const std::string& name, const std::string& path) {
  if (before) before(name, path);
  const auto fits = [&](const Fault& fault) {
    return fault.name == name && path.size() >= fault.ending.size() &&
           path.compare(path.size() - fault.ending.size(), std::string::npos, fault.ending) == 0;
  };
  const auto fault = std::find_if(faults_.begin(), faults_.end(), fits);
  if (fault == faults_.end() || fault->skipped-- > 0) return false;
  errno = fault->error;
  if (!fault->always) faults_.erase(fault);
  return true;
}

extern "C" {

int JX_WRAP(fstat)(int fd, struct stat* status) {
  return refuses("fstat", pathOf(fd)) ? -1 : JX_REAL(fstat)(fd, status);
}

int JX_WRAP(fstatvfs)(int fd, struct statvfs* disk) {
  if (refuses("fstatvfs", pathOf(fd)) || JX_REAL(fstatvfs)(fd, disk) != 0) return -1;
  if (active != nullptr && active->disk) active->disk(*disk);
  return 0;
}

int JX_WRAP(open)(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
  va_end(arguments);
  return refuses("open", active != nullptr ? path : "") ? -1 : JX_REAL(open)(path, flags, mode);
}

int JX_WRAP(openat)(int directory, const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
  va_end(arguments);
  return refuses("openat", pathOf(directory, path)) ? -1 : JX_REAL(openat)(directory, path, flags, mode);
}

ssize_t JX_WRAP(pread)(int fd, void* buffer, size_t size, off_t offset) {
  if (refuses("pread", pathOf(fd))) return -1;
  return JX_REAL(pread)(fd, buffer, active != nullptr ? std::min(size, active->largestRead) : size, offset);
}

dirent* JX_WRAP(readdir)(DIR* stream) {
  return refuses("readdir", pathOf(dirfd(stream))) ? nullptr : JX_REAL(readdir)(stream);
}

int __wrap_fchmod(int fd, mode_t mode) { return refuses("fchmod", pathOf(fd)) ? -1 : __real_fchmod(fd, mode); }

int __wrap_fchmodat(int directory, const char* path, mode_t mode, int flags) {
  return refuses("fchmodat", pathOf(directory, path)) ? -1 : __real_fchmodat(directory, path, mode, flags);
}

DIR* __wrap_fdopendir(int fd) { return refuses("fdopendir", pathOf(fd)) ? nullptr : __real_fdopendir(fd); }

int __wrap_flock(int fd, int operation) { return refuses("flock", pathOf(fd)) ? -1 : __real_flock(fd, operation); }

int __wrap_fsync(int fd) {
  note("fsync", lastName(pathOf(fd).c_str()));
  return refuses("fsync", pathOf(fd)) ? -1 : __real_fsync(fd);
}

int __wrap_mkdirat(int directory, const char* path, mode_t mode) {
  note("mkdirat", lastName(path));
  return refuses("mkdirat", pathOf(directory, path)) ? -1 : __real_mkdirat(directory, path, mode);
}

// What is waited for comes by itself: nobody has to sleep.
int __wrap_nanosleep(const timespec* time, timespec* left) {
  if (active == nullptr) return __real_nanosleep(time, left);
  note("nanosleep");
  return refuses("nanosleep", "") ? -1 : 0;
}

int __wrap_renameat(int oldDirectory, const char* oldPath, int newDirectory, const char* newPath) {
  note("renameat", oldPath, lastName(newPath));
  return refuses("renameat", pathOf(newDirectory, newPath))
             ? -1
             : __real_renameat(oldDirectory, oldPath, newDirectory, newPath);
}

// The installer's only one is renameat2().
long __wrap_syscall(long number, int oldDirectory, const char* oldPath, int newDirectory, const char* newPath,
                    unsigned flags) {
  note("renameat2", oldPath, lastName(newPath));
  if (refuses("renameat2", pathOf(newDirectory, newPath))) return -1;
  return __real_syscall(number, oldDirectory, oldPath, newDirectory, newPath, flags);
}

int __wrap_unlinkat(int directory, const char* path, int flags) {
  note("unlinkat", lastName(path));
  return refuses("unlinkat", pathOf(directory, path)) ? -1 : __real_unlinkat(directory, path, flags);
}

ssize_t __wrap_write(int fd, const void* bytes, size_t size) {
  return refuses("write", pathOf(fd)) ? -1 : __real_write(fd, bytes, size);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
