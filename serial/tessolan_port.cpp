// The serial line under the protocol.
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

#include "base/file_io.h"
#include "base/ignore.h"
#include "serial/conversation.h"
#include "serial/tessolan.h"

namespace {

constexpr int kByteTimeoutMs = 1000;
constexpr int kEmptyReadPauseMs = 20;
constexpr std::size_t kBodyStep = tessolan::kNoEnd;

struct Speed {
  unsigned baud;
  speed_t constant;
};

constexpr Speed kSpeeds[] = {
    {50, B50},           {75, B75},           {110, B110},         {134, B134},         {150, B150},
    {200, B200},         {300, B300},         {600, B600},         {1200, B1200},       {1800, B1800},
    {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},     {38400, B38400},
    {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
    {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000},
};

speed_t speedConstant(unsigned baud) {
  for (const Speed& speed : kSpeeds) {
    if (speed.baud == baud) return speed.constant;
  }
  return B0;  // deliberate: a rate that the system does not know hangs up
}

tcflag_t characterSize(int dataBits) {
  switch (dataBits) {
    case 5:
      return CS5;
    case 6:
      return CS6;
    case 7:
      return CS7;
    default:
      return CS8;
  }
}

tcflag_t parityFlags(char parity) {
  if (parity == 'E') return PARENB;
  return parity == 'O' ? PARENB | PARODD : 0;
}

void pause(int milliseconds) { poll(nullptr, 0, milliseconds); }

}  // namespace

int Tessolan::setupPort(unsigned baud, int dataBits, char parity, int stopBits) {
  // All zero: no flow control, and VMIN = VTIME = 0, so that a read takes what is there and poll does all the waiting.
  termios settings{};
  if (fd < 0) return -1;
  const speed_t speed = speedConstant(baud);
  settings.c_iflag = IGNBRK | BRKINT;
  settings.c_cflag = CLOCAL | CREAD | characterSize(dataBits);
  if (stopBits == 2) settings.c_cflag |= CSTOPB;
  settings.c_cflag |= parityFlags(parity);
  // Deliberately unchecked: a device that keeps other settings fails by its check values.
  cfsetispeed(&settings, speed);
  cfsetospeed(&settings, speed);
  tcflush(fd, TCIOFLUSH);
  tcsetattr(fd, TCSANOW, &settings);
  tcflush(fd, TCIOFLUSH);
  return 0;
}

int Tessolan::waitForInput(int timeoutMs) {
  pollfd device{fd, POLLIN, 0};
  int ready = 0;
  do {
    ready = poll(&device, 1, timeoutMs);
  } while (ready == -1 && errno == EINTR);
  if (ready == -1) return kFailed;
  if (abortFlag.load(std::memory_order_relaxed) != 0) return kAborted;
  if (ready == 0) return 0;
  if ((device.revents & POLLIN) != 0) return 1;
  // A hang-up or an error stays: without this wait the idle loop would spin.
  pause(timeoutMs);
  return abortFlag.load(std::memory_order_relaxed) != 0 ? kAborted : 0;
}

int Tessolan::readBytes(unsigned char* buffer, std::size_t count) {
  std::size_t done = 0;
  int emptyMs = 0;
  while (done < count) {
    const int ready = waitForInput(kByteTimeoutMs);
    if (ready < 0) return ready;
    if (ready == 0) return kFailed;
    const ssize_t got = read(fd, buffer + done, count - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) break;
    if (got > 0) {
      done += static_cast<std::size_t>(got);
      emptyMs = 0;
      continue;
    }
    // No error by itself; but a line that was hung up reads empty for ever, and a second without a byte ends the wait.
    if (emptyMs >= kByteTimeoutMs) return kFailed;
    pause(kEmptyReadPauseMs);
    emptyMs += kEmptyReadPauseMs;
  }
  return static_cast<int>(done);
}

int Tessolan::readRecordBody(unsigned char* buffer, std::size_t capacity) {
  // Deliberately in steps of three: ETX and its check value are then never read past, and what follows stays in the
  // device.
  std::size_t done = 0;
  while (capacity - done >= kBodyStep) {
    const unsigned char* const step = buffer + done;
    const int got = readBytes(buffer + done, kBodyStep);
    if (got < 0) return got;
    if (static_cast<std::size_t>(got) < kBodyStep) return kFailed;
    done += kBodyStep;
    const std::size_t behind = tessolan::bytesBehind(step);
    if (behind == tessolan::kNoEnd) continue;
    if (capacity - done < behind) return kTooLong;
    const int rest = readBytes(buffer + done, behind);
    if (rest < 0) return rest;
    if (static_cast<std::size_t>(rest) < behind) return kFailed;
    return static_cast<int>(done + behind);
  }
  return kTooLong;
}

int Tessolan::writeBytes(const void* buffer, std::size_t count) {
  std::size_t written = 0;
  // A failure shows in how many bytes went out.
  base::ignore(base::writeAll(fd, {static_cast<const char*>(buffer), count}, &written));
  return static_cast<int>(written);
}
