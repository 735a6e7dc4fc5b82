#include "tests/unit/serial/calls.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdarg>

namespace {

thread_local bool receives = false;

unsigned modeFrom(int flags, va_list args) { return (flags & O_CREAT) != 0 ? va_arg(args, unsigned) : 0; }

bool refuses() {
  if (!receives || !Calls::instance().refuseSettings) return false;
  errno = EIO;
  return true;
}

// Notes the flags of an opening; the path that is to be opened in its place.
std::string noted(const char* path, int flags) {
  Calls& calls = Calls::instance();
  if (receives) calls.openFlags.push_back(flags);
  return calls.onOpen ? calls.onOpen(path) : path;
}

}  // namespace

// The linker sends the program's own calls here (--wrap); the names are its convention.
extern "C" {
int __real_poll(pollfd* entries, nfds_t count, int timeoutMs);
ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __real_write(int fd, const void* buffer, size_t size);
int __real_open(const char* path, int flags, ...);
int __real_open64(const char* path, int flags, ...);
int __real_tcsetattr(int fd, int actions, const termios* settings);
int __real_tcflush(int fd, int queue);
int __real_cfsetispeed(termios* settings, speed_t speed);
int __real_cfsetospeed(termios* settings, speed_t speed);

int __wrap_poll(pollfd* entries, nfds_t count, int timeoutMs) {
  Calls& calls = Calls::instance();
  if (calls.onPoll) return calls.onPoll(entries, count, timeoutMs);
  const int divisor = calls.timeDivisor;
  if (timeoutMs > 0) timeoutMs = (timeoutMs * calls.timeFactor + divisor - 1) / divisor;
  return __real_poll(entries, count, timeoutMs);
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  Calls& calls = Calls::instance();
  if (calls.onRead) return calls.onRead(fd, buffer, size);
  const ssize_t got = __real_read(fd, buffer, size);
  if (receives && got > 0) calls.bytesRead += static_cast<size_t>(got);
  return got;
}

ssize_t __wrap_write(int fd, const void* buffer, size_t size) {
  Calls& calls = Calls::instance();
  return calls.onWrite ? calls.onWrite(fd, buffer, size) : __real_write(fd, buffer, size);
}

int __wrap_open(const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const unsigned mode = modeFrom(flags, args);
  va_end(args);
  return __real_open(noted(path, flags).c_str(), flags, mode);
}

// What open is called with 64-bit file offsets on a 32-bit processor.
int __wrap_open64(const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const unsigned mode = modeFrom(flags, args);
  va_end(args);
  return __real_open64(noted(path, flags).c_str(), flags, mode);
}

int __wrap_tcsetattr(int fd, int actions, const termios* settings) {
  Calls& calls = Calls::instance();
  if (calls.recordSettings) {
    calls.settingCalls.emplace_back(actions == TCSANOW ? "set now" : "set");
    calls.settings = *settings;
  }
  return refuses() ? -1 : __real_tcsetattr(fd, actions, settings);
}

int __wrap_tcflush(int fd, int queue) {
  Calls& calls = Calls::instance();
  if (calls.recordSettings) calls.settingCalls.emplace_back(queue == TCIOFLUSH ? "flush both" : "flush");
  const int result = refuses() ? -1 : __real_tcflush(fd, queue);
  if (receives) ++calls.flushes;
  return result;
}

int __wrap_cfsetispeed(termios* settings, speed_t speed) {
  return refuses() ? -1 : __real_cfsetispeed(settings, speed);
}

int __wrap_cfsetospeed(termios* settings, speed_t speed) {
  return refuses() ? -1 : __real_cfsetospeed(settings, speed);
}
}

Calls& Calls::instance() {
  static Calls calls;
  return calls;
}

void Calls::thisThreadReceives() { receives = true; }

void Calls::reset() {
  onPoll = nullptr;
  onRead = nullptr;
  onWrite = nullptr;
  onOpen = nullptr;
  openFlags.clear();
  recordSettings = false;
  settingCalls.clear();
  settings = {};
  refuseSettings = false;
  timeDivisor = 1;
  timeFactor = 1;
}
