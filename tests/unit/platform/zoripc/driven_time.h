// Time that a test decides on, for what waits by poll(), by a recv() with a time-out, and the monotonic clock.
#pragma once

#include <functional>
#include <vector>

namespace driven {

// Sets the monotonic clock of the whole process forward while it lives.
class ClockAhead {
 public:
  explicit ClockAhead(long long ms);
  ClockAhead(const ClockAhead&) = delete;
  ClockAhead& operator=(const ClockAhead&) = delete;
  ~ClockAhead();

 private:
  long long ms_;
};

// While it lives, the calling thread has a clock of its own that stands still, and its polls and its receives from a
// socket with a time-out take no time: what is ready is told at once; otherwise the clock is set to the next thing due,
// or to the end of the wait. A poll that would wait for ever ends the process.
class Time {
 public:
  Time();
  Time(const Time&) = delete;
  Time& operator=(const Time&) = delete;
  ~Time();

  // Has `action` done by a poll, `ms` milliseconds after the beginning.
  void at(long long ms, std::function<void()> action);
  // Has it done every `ms` milliseconds, for as long as it returns true.
  void every(long long ms, const std::function<bool()>& action);

  // Lets time pass.
  void pass(long long ms);

  // Milliseconds since the beginning.
  long long now() const;
};

}  // namespace driven
