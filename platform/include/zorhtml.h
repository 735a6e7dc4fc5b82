// The terminal's HTML library (libzorhtml): page processing, and monotonic time.
#pragma once

#include <ctime>
#include <map>
#include <string>

namespace zorhtml {

// Runs the text of one processing instruction. `vars` are the page's variables, which a script may read and change;
// what it prints is appended to `output`. False on failure, with the reason appended to `output` as plain text.
using ScriptProcessor = bool (*)(void* userData, const std::string& script, std::map<std::string, std::string>& vars,
                                 std::string& output);

// Registers `processor` for the processing instruction `name`, replacing an earlier one; null removes it. Any thread.
void htmlSetScriptProcessor(const char* name, ScriptProcessor processor, void* userData);

// A point in time or a duration.
class TimeStamp {
 public:
  constexpr TimeStamp() = default;
  constexpr TimeStamp(long seconds, long nanoseconds) : time_{seconds, nanoseconds} {}

  // Now, on the monotonic clock.
  static TimeStamp Monotonic();

  TimeStamp operator+(const TimeStamp& other) const;
  TimeStamp operator-(const TimeStamp& other) const;
  bool operator<(const TimeStamp& other) const;

  // For the waiting calls of POSIX; nanoseconds are 0 to 999,999,999.
  const timespec& get() const { return time_; }

 private:
  timespec time_{0, 0};
};

}  // namespace zorhtml
