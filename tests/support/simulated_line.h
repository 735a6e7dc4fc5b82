// A serial line in a time of its own, with the terminal's receiver at the far end.
//
// All of it runs on the thread of the host's end. Time stands still while the host works and moves on when it waits,
// from one event to the next. The same settings and the same host therefore take the same course, whatever the machine
// does meanwhile, and hours of waiting take no time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "tests/support/line_faults.h"
#include "tests/support/memory_line.h"

class SimulatedLine {
 public:
  using Time = std::chrono::microseconds;  // since the line was made

  struct Settings {
    std::uint32_t bytesPerSecond = 11520;  // in each direction; 0: a byte takes no time
    Time delay{30000};                     // of a byte that is late
    Time tick{0};                          // bytes arrive together with those of the same tick; 0: each by itself
  };

  // `system` gets what the terminal receives; outlives the line.
  SimulatedLine(const Settings& settings, Tessolan::System& system) : settings_(settings), terminal_(system) {}

  Time now() const { return now_; }
  // The host's end: sends, and waits for the next byte, which it returns; -1 when none has come by `deadline`. Throws
  // std::runtime_error when the host goes on for more than a day.
  void write(const void* data, std::size_t size);
  int read(Time deadline);

  // What happens to the bytes; may be replaced at any time.
  FaultyDirection toTerminal;
  FaultyDirection toHost;
  // Of each byte that went in, in their order, whether it was one to the host; may be cleared at any time.
  std::vector<bool> passed;

  // The terminal's result when the host has left, or tessolan::Conversation::kGoOn.
  int end();

 private:
  struct Byte {
    unsigned char value;
    Time due;
  };
  // From one end to the other.
  struct Way {
    std::deque<Byte> bytes;
    Time free{0};  // when the last of them will have passed
  };

  void pass(FaultyDirection& faulty, Way& way, unsigned char byte);
  bool runTerminal(Time until);
  void moveTo(Time time);

  const Settings settings_;
  MemoryLine terminal_;
  Way there_;
  Way back_;
  Time now_{0};
  Time silentAt_{0};  // when the terminal ends the record that it is in, unless a byte comes
};
