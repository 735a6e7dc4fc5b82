// A serial port of this machine, taken for ourselves.
#pragma once

#include <termios.h>

#include <string>

#include "tools/jxpush/serial/line.h"

namespace jxpush {

class SerialPort : public Line {
 public:
  // Opens and locks `device` and sets it to 115200 baud, 8 data bits, no parity, one stop bit, no flow control; the
  // modem lines are left as opening puts them. `stopFd` becomes readable when the user interrupts (-1: never). Throws
  // Problem with kNoPort, kBusy or kNoPermission.
  SerialPort(const std::string& device, int stopFd);
  // Puts the settings back and gives the port free. What the line has not taken yet is dropped.
  ~SerialPort() override;

  // Throws as the constructor does where it can be seen without opening the port.
  static void check(const std::string& device);

  void write(const void* data, std::size_t size) override;
  void offer(unsigned char byte) override;
  int readByte(int timeoutMs) override;
  Time now() override { return std::chrono::steady_clock::now(); }
  void ignoreInterrupts() override { stopFd_ = -1; }

 private:
  void lock();
  void configure();
  void askForLowLatency();
  bool fill(int timeoutMs);
  bool hasInput(int timeoutMs);
  bool takeInput();
  void giveBack();

  const std::string device_;
  int stopFd_;
  int fd_ = -1;
  bool exclusive_ = false;
  bool configured_ = false;
  termios found_{};
  int foundFlags_ = 0;  // of the driver
  bool flagsChanged_ = false;
  unsigned char buffer_[4096] = {};
  std::size_t next_ = 0;
  std::size_t end_ = 0;
};

}  // namespace jxpush
