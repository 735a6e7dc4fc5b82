#include "base/descriptor.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/ignore.h"

namespace base {

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    const Descriptor old(std::exchange(fd_, other.release()));
  }
  return *this;
}

Descriptor::~Descriptor() {
  const int before = errno;
  ignore(close());
  errno = before;
}

int Descriptor::release() { return std::exchange(fd_, -1); }

bool Descriptor::close() {
  const int fd = release();
  // Linux frees the number whatever close() answers, EINTR included: it is not called again.
  return fd < 0 || ::close(fd) == 0 || errno == EINTR;
}

}  // namespace base
