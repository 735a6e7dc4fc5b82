#include "tools/jxpush/serial/port.h"

#include <fcntl.h>
#include <linux/serial.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/serial/port_owner.h"

namespace jxpush {

namespace {

constexpr int kWriteTimeoutMs = 5000;

[[noreturn]] void failToOpen(const std::string& device, int error) {
  switch (error) {
    case EACCES:
    case EPERM:
      throw Problem(ExitCode::kNoPermission, device + ": no permission" + permissionAdvice(device));
    case EBUSY:
      throw Problem(ExitCode::kBusy, device + ": busy" + portHolder(device));
    default:
      throw Problem(ExitCode::kNoPort, device + ": no such port (" + std::strerror(error) + ")");
  }
}

[[noreturn]] void lost(const std::string& device, const std::string& why) {
  throw Problem(ExitCode::kGaveUp, device + ": " + why);
}

}  // namespace

SerialPort::SerialPort(const std::string& device, int stopFd) : device_(device), stopFd_(stopFd) {
  // Neither waits for a modem's carrier nor becomes our terminal.
  fd_ = open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd_ < 0) failToOpen(device, errno);
  try {
    if (tcgetattr(fd_, &found_) != 0) throw Problem(ExitCode::kNoPort, device + ": not a serial port");
    lock();
    configure();
  } catch (...) {
    giveBack();
    throw;
  }
  askForLowLatency();
}

SerialPort::~SerialPort() {
  if (flagsChanged_) {
    serial_struct driver{};
    if (ioctl(fd_, TIOCGSERIAL, &driver) == 0) {
      driver.flags = foundFlags_;
      ioctl(fd_, TIOCSSERIAL, &driver);
    }
  }
  giveBack();
}

// Takes back what was done, and nothing that belongs to another program.
void SerialPort::giveBack() {
  // Closing would wait for a line that takes no bytes.
  if (configured_) tcflush(fd_, TCOFLUSH);
  if (configured_) tcsetattr(fd_, TCSANOW, &found_);
  if (exclusive_) ioctl(fd_, TIOCNXCL);
  close(fd_);
}

void SerialPort::check(const std::string& device) {
  struct stat status {};
  if (stat(device.c_str(), &status) != 0) failToOpen(device, errno);
  if (!S_ISCHR(status.st_mode)) throw Problem(ExitCode::kNoPort, device + ": not a serial port");
  if (access(device.c_str(), R_OK | W_OK) != 0) failToOpen(device, errno);
}

void SerialPort::lock() {
  // The lock first: it belongs to this open file, while TIOCEXCL would shut the port for its rightful holder.
  if (flock(fd_, LOCK_EX | LOCK_NB) != 0) failToOpen(device_, errno == EWOULDBLOCK ? EBUSY : errno);
  if (ioctl(fd_, TIOCEXCL) != 0) failToOpen(device_, errno);
  exclusive_ = true;
}

void SerialPort::configure() {
  termios settings{};
  // HUPCL stays as it was: what the modem lines do when the port closes is not ours to change.
  settings.c_cflag = CS8 | CLOCAL | CREAD | (found_.c_cflag & HUPCL);
  settings.c_iflag = IGNBRK;
  cfsetispeed(&settings, B115200);
  cfsetospeed(&settings, B115200);
  configured_ = true;  // in part, if it fails
  if (tcsetattr(fd_, TCSANOW, &settings) != 0) {
    throw Problem(ExitCode::kNoPort, device_ + ": cannot be set to 115200 baud (" + std::strerror(errno) + ")");
  }
  tcflush(fd_, TCIOFLUSH);
}

// USB adapters collect bytes for some milliseconds otherwise, which each acknowledgement would wait for. Not every
// driver has it; then it stays as it is.
void SerialPort::askForLowLatency() {
  constexpr int kLowLatency = static_cast<int>(ASYNC_LOW_LATENCY);
  serial_struct driver{};
  if (ioctl(fd_, TIOCGSERIAL, &driver) != 0 || (driver.flags & kLowLatency) != 0) return;
  foundFlags_ = driver.flags;
  driver.flags |= kLowLatency;
  flagsChanged_ = ioctl(fd_, TIOCSSERIAL, &driver) == 0;
}

void SerialPort::write(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const char*>(data);
  std::size_t done = 0;
  while (done < size) {
    const ssize_t put = ::write(fd_, bytes + done, size - done);
    if (put > 0) done += static_cast<std::size_t>(put);
    if (put >= 0 || errno == EINTR) continue;
    if (errno != EAGAIN) lost(device_, std::strerror(errno));
    pollfd entry{fd_, POLLOUT, 0};
    if (poll(&entry, 1, kWriteTimeoutMs) == 0) lost(device_, "the line takes no bytes");
  }
}

void SerialPort::offer(unsigned char byte) {
  if (::write(fd_, &byte, 1) < 0 && errno != EAGAIN && errno != EINTR) lost(device_, std::strerror(errno));
}

int SerialPort::readByte(int timeoutMs) {
  if (next_ == end_ && !fill(timeoutMs)) return -1;
  return buffer_[next_++];
}

// Waits for bytes. False on silence.
bool SerialPort::fill(int timeoutMs) {
  const auto end = now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(end - now()).count();
    if (hasInput(rest > 0 ? static_cast<int>(rest) : 0) && takeInput()) return true;
    if (rest <= 0) return false;
  }
}

bool SerialPort::hasInput(int timeoutMs) {
  pollfd entries[2] = {{fd_, POLLIN, 0}, {stopFd_, POLLIN, 0}};
  const int ready = poll(entries, 2, timeoutMs);
  if (ready < 0 && errno != EINTR) lost(device_, std::strerror(errno));
  if (ready <= 0) return false;
  if (entries[1].revents != 0) throw Interrupted();
  if ((entries[0].revents & POLLIN) == 0) lost(device_, "the line was hung up");
  return true;
}

// False when another reader was quicker, or a signal came.
bool SerialPort::takeInput() {
  const ssize_t got = read(fd_, buffer_, sizeof buffer_);
  if (got == 0) lost(device_, "the line was hung up");
  if (got < 0 && errno != EAGAIN && errno != EINTR) lost(device_, std::strerror(errno));
  next_ = 0;
  end_ = got > 0 ? static_cast<std::size_t>(got) : 0;
  return got > 0;
}

}  // namespace jxpush
