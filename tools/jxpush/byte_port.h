// A line to the terminal, as the protocol needs it.
#pragma once

#include <cstddef>

namespace jxpush {

// The user interrupted while the port was waited for.
class Interrupted {};

class BytePort {
 public:
  BytePort() = default;
  BytePort(const BytePort&) = delete;
  BytePort& operator=(const BytePort&) = delete;
  virtual ~BytePort() = default;

  // Sends all `size` bytes, or throws Problem(kGaveUp) when the line is gone or takes nothing for some seconds. Is not
  // interrupted, so that a record is sent whole.
  virtual void write(const void* data, std::size_t size) = 0;

  // Waits up to `timeoutMs` milliseconds for the next byte. Returns it, or -1 on silence. Throws Interrupted, and
  // Problem(kGaveUp) when the line is gone.
  virtual int readByte(int timeoutMs) = 0;

  // From now on nothing interrupts: for ending a download in order.
  virtual void ignoreInterrupts() = 0;
};

}  // namespace jxpush
