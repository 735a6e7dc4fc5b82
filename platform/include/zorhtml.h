// The terminal's HTML library (libzorhtml): page processing, and monotonic time.
#pragma once

#include <ctime>
#include <limits>
#include <map>
#include <string>

namespace zorhtml {

// Runs the text of one processing instruction. `vars` are the page's variables, which a script may read and change;
// what it prints is appended to `output`. False on failure, with the reason appended to `output` as plain text.
using ScriptProcessor = bool (*)(void* userData, const std::string& script, std::map<std::string, std::string>& vars,
                                 std::string& output);

// Registers `processor` for the processing instruction `name`, replacing an earlier one; null removes it. Any thread.
void htmlSetScriptProcessor(const char* name, ScriptProcessor processor, void* userData);

// A point in time or a duration. Whatever is made or computed has 0 to 999,999,999 nanoseconds and the sign in its
// seconds; what is beyond the range of the seconds stays at its end.
class TimeStamp {
 public:
  constexpr TimeStamp() = default;
  // Nanoseconds may be any number: whole seconds in them are carried over.
  constexpr TimeStamp(long seconds, long nanoseconds) : time_(carried(seconds, nanoseconds)) {}

  // Now, on the monotonic clock.
  static TimeStamp Monotonic();

  TimeStamp operator+(const TimeStamp& other) const;
  TimeStamp operator-(const TimeStamp& other) const;
  bool operator<(const TimeStamp& other) const;

  // For the waiting calls of POSIX.
  const timespec& get() const { return time_; }

 private:
  static constexpr timespec carried(long seconds, long nanoseconds) {
    constexpr long kPerSecond = 1000000000;
    const long carry = nanoseconds / kPerSecond - (nanoseconds % kPerSecond < 0 ? 1 : 0);
    constexpr long kLargest = std::numeric_limits<long>::max();
    constexpr long kSmallest = std::numeric_limits<long>::min();
    if (carry > 0 && seconds > kLargest - carry) return {kLargest, kPerSecond - 1};
    if (carry < 0 && seconds < kSmallest - carry) return {kSmallest, 0};
    const long rest = nanoseconds % kPerSecond;
    return {seconds + carry, rest < 0 ? rest + kPerSecond : rest};
  }

  timespec time_{0, 0};
};

}  // namespace zorhtml
