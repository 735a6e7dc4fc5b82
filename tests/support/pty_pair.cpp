#include "tests/support/pty_pair.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <system_error>

namespace {

void check(bool held, const char* what) {
  if (!held) throw std::system_error(errno, std::generic_category(), what);
}

bool ready(int fd, short event, int timeoutMs) {
  pollfd entry{fd, event, 0};
  const timespec wait{timeoutMs / 1000, timeoutMs % 1000 * 1000000L};
  return ppoll(&entry, 1, &wait, nullptr) > 0 && (entry.revents & event) != 0;
}

}  // namespace

PtyPair::PtyPair() {
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  check(master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0, "posix_openpt");
  char name[64];
  check(ptsname_r(master_, name, sizeof name) == 0, "ptsname_r");
  path_ = name;
  device_ = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  check(device_ >= 0, name);
  termios settings{};
  check(tcgetattr(device_, &settings) == 0, "tcgetattr");
  cfmakeraw(&settings);
  check(tcsetattr(device_, TCSANOW, &settings) == 0, "tcsetattr");
}

PtyPair::~PtyPair() {
  hangUp();
  ::close(device_);
}

bool PtyPair::send(const std::string& bytes) const {
  std::size_t done = 0;
  while (done < bytes.size()) {
    if (master_ < 0 || !ready(master_, POLLOUT, 20000)) return false;
    const ssize_t put = ::write(master_, bytes.data() + done, bytes.size() - done);
    if (put < 0 && errno != EAGAIN && errno != EINTR) return false;
    if (put > 0) done += static_cast<std::size_t>(put);
  }
  return true;
}

std::string PtyPair::receive(std::size_t count, int timeoutMs) const {
  std::string bytes(count, '\0');
  std::size_t done = 0;
  while (done < count && ready(master_, POLLIN, timeoutMs)) {
    const ssize_t got = ::read(master_, &bytes[done], count - done);
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  bytes.resize(done);
  return bytes;
}

std::string PtyPair::pending() const {
  // What the device's users have written reaches this end by way of the kernel's own thread: a mark behind it says that
  // all of it is here.
  constexpr char kMark = '\xF7';
  if (::write(device_, &kMark, 1) != 1) return "";
  std::string bytes;
  for (std::string byte = receive(1); !byte.empty() && byte[0] != kMark; byte = receive(1)) bytes += byte;
  return bytes;
}

int PtyPair::unread() const {
  int count = 0;
  return ioctl(device_, FIONREAD, &count) == 0 ? count : 0;
}

void PtyPair::release() const { ioctl(device_, TIOCNXCL); }

void PtyPair::hangUp() {
  if (master_ >= 0) ::close(master_);
  master_ = -1;
}
