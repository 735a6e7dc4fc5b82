// A line to the terminal, and the time, as the protocol needs them.
#pragma once

#include <chrono>
#include <cstddef>

namespace jxpush {

// The user interrupted while the line was waited for.
class Interrupted {};

class Line {
 public:
  using Time = std::chrono::steady_clock::time_point;

  Line() = default;
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  virtual ~Line() = default;

  // Sends all `size` bytes, or throws Problem(kGaveUp) when the line is gone or takes nothing for some seconds. Is not
  // interrupted, so that a record is sent whole.
  virtual void write(const void* data, std::size_t size) = 0;

  // Sends a byte if the line takes it at once, and forgets it otherwise. Throws Problem(kGaveUp) when the line is gone.
  virtual void offer(unsigned char byte) = 0;

  // Waits up to `timeoutMs` milliseconds for the next byte. Returns it, or -1 on silence. Throws Interrupted, and
  // Problem(kGaveUp) when the line is gone.
  virtual int readByte(int timeoutMs) = 0;

  // The present time, which is that of the waits.
  virtual Time now() = 0;

  // From now on nothing interrupts: for ending a download in order.
  virtual void ignoreInterrupts() = 0;
};

}  // namespace jxpush
