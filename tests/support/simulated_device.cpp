#include "tests/support/simulated_device.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/types.h>
#include <termios.h>

#include <cstdarg>
#include <cstring>

#include "tests/support/simulated_line.h"

namespace {

constexpr int kDescriptor = 1 << 24;  // none that the system gives

bool isLine(int fd) { return fd == kDescriptor && SimulatedDevice::instance().line != nullptr; }

bool isLine(const char* path) {
  return SimulatedDevice::instance().line != nullptr && std::strcmp(path, SimulatedLine::kDevice) == 0;
}

SimulatedLine& line() { return *SimulatedDevice::instance().line; }

SimulatedLine::Time after(int milliseconds) { return line().now() + std::chrono::milliseconds(milliseconds); }

unsigned modeFrom(int flags, va_list args) { return (flags & O_CREAT) != 0 ? va_arg(args, unsigned) : 0; }

}  // namespace

SimulatedDevice& SimulatedDevice::instance() {
  static SimulatedDevice device;
  return device;
}

// The linker sends the program's own calls here (--wrap); the names are its convention.
extern "C" {
int __real_open(const char* path, int flags, ...);
int __real_open64(const char* path, int flags, ...);
int __real_close(int fd);
int __real_poll(pollfd* entries, nfds_t count, int timeoutMs);
ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __real_write(int fd, const void* buffer, size_t size);
int __real_tcsetattr(int fd, int actions, const termios* settings);
int __real_tcflush(int fd, int queue);

int __wrap_open(const char* path, int flags, ...) {
  if (isLine(path)) return kDescriptor;
  va_list args;
  va_start(args, flags);
  const unsigned mode = modeFrom(flags, args);
  va_end(args);
  return __real_open(path, flags, mode);
}

// What open is called with 64-bit file offsets on a 32-bit processor.
int __wrap_open64(const char* path, int flags, ...) {
  if (isLine(path)) return kDescriptor;
  va_list args;
  va_start(args, flags);
  const unsigned mode = modeFrom(flags, args);
  va_end(args);
  return __real_open64(path, flags, mode);
}

int __wrap_close(int fd) { return isLine(fd) ? 0 : __real_close(fd); }

int __wrap_poll(pollfd* entries, nfds_t count, int timeoutMs) {
  if (count != 1 || !isLine(entries[0].fd)) return __real_poll(entries, count, timeoutMs);
  const bool ready = line().wait(SimulatedLine::kTerminal, after(timeoutMs));
  entries[0].revents = ready ? POLLIN : 0;
  return ready ? 1 : 0;
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  if (!isLine(fd)) return __real_read(fd, buffer, size);
  return static_cast<ssize_t>(line().read(SimulatedLine::kTerminal, buffer, size));
}

ssize_t __wrap_write(int fd, const void* buffer, size_t size) {
  if (!isLine(fd)) return __real_write(fd, buffer, size);
  line().write(SimulatedLine::kTerminal, buffer, size);
  return static_cast<ssize_t>(size);
}

int __wrap_tcsetattr(int fd, int actions, const termios* settings) {
  return isLine(fd) ? 0 : __real_tcsetattr(fd, actions, settings);
}

int __wrap_tcflush(int fd, int queue) {
  if (!isLine(fd)) return __real_tcflush(fd, queue);
  if (queue != TCOFLUSH) line().discard(SimulatedLine::kTerminal);
  return 0;
}
}
