// A serial line in a time of its own, between two programs that block.
//
// Both ends run in lock-step: one of them at a time, and time stands still while it runs. It moves on when both wait,
// to the moment at which the first of them has something to do. The same settings and programs therefore take the same
// course, whatever the machine does meanwhile, and hours of waiting take no time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <vector>

#include "tests/support/line_faults.h"

class SimulatedLine {
 public:
  enum End { kHost, kTerminal };
  using Time = std::chrono::microseconds;  // since the line was made

  struct Settings {
    std::uint32_t bytesPerSecond = 11520;  // in each direction; 0: a byte takes no time
    Time delay{30000};                     // of a byte that is late
    Time tick{0};                          // bytes arrive together with those of the same tick; 0: each by itself
  };

  // The device under which the terminal opens its end; open, poll, read, write, tcsetattr, tcflush and close then mean
  // this line. One line at a time.
  static constexpr const char* kDevice = "/simulated/line";

  explicit SimulatedLine(const Settings& settings);  // without faults
  SimulatedLine(const SimulatedLine&) = delete;
  SimulatedLine& operator=(const SimulatedLine&) = delete;
  ~SimulatedLine();

  // Runs `terminal` until it waits, then both until `host` returns, then `terminal` until it returns. Throws what one
  // of them throws, and std::runtime_error when they do not end: within a day, or ten minutes after the host.
  void run(const std::function<void()>& host, const std::function<void()>& terminal);

  // The rest is for the end that runs.
  Time now() const { return now_; }
  // Waits until a byte has arrived at `end`; false when none has at `deadline`.
  bool wait(End end, Time deadline);
  // Takes what has arrived, at most `size` bytes. Returns how many.
  std::size_t read(End end, void* buffer, std::size_t size);
  void write(End end, const void* data, std::size_t size);
  // Throws away what has arrived.
  void discard(End end);

  // What happens to the bytes from `end`; may be replaced at any time.
  FaultyDirection& from(End end) { return ways_[end].faulty; }

 private:
  struct Byte {
    unsigned char value;
    Time due;
  };
  // From one end to the other.
  struct Way {
    FaultyDirection faulty;
    std::deque<Byte> queue;
    Time free{0};  // when the last byte will have passed
  };

  static End other(End end) { return end == kHost ? kTerminal : kHost; }
  Way& wayTo(End end) { return ways_[other(end)]; }
  bool arrived(End end) { return !wayTo(end).queue.empty() && wayTo(end).queue.front().due <= now_; }
  Time nextEvent(End end, Time deadline);
  Time arrival(Time sent) const;
  void moveTo(Time time);
  void handOver(End to);
  void awaitTurn(End end);
  void runTerminal(const std::function<void()>& terminal);

  const Settings settings_;
  Way ways_[2];
  Time now_{0};
  Time limit_;
  Time deadlines_[2] = {};  // of the end that waits
  bool ended_[2] = {};
  End turn_ = kTerminal;
  std::exception_ptr failure_;
  std::mutex mutex_;
  std::condition_variable turned_;
};
