// The end of a call's time.
#pragma once

namespace base {

// A point in time on the monotonic clock. Setting the wall clock changes nothing.
class Deadline {
 public:
  // `timeoutMs` from now; a negative one never comes.
  explicit Deadline(int timeoutMs);

  // What is left, in milliseconds, rounded up: 0 when it has come, -1 when it never comes. Fits poll().
  [[nodiscard]] int remainingMs() const;

  // What is left, but no more than `limitMs`.
  [[nodiscard]] int remainingMs(int limitMs) const;

  [[nodiscard]] bool passed() const { return remainingMs() == 0; }

 private:
  long long endNs_;  // -1: never
};

}  // namespace base
