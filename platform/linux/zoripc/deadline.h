// The end of a call's time.
#pragma once

namespace zoripc {

// A point in time on the monotonic clock. Setting the wall clock changes nothing.
class Deadline {
 public:
  // `timeoutMs` from now; a negative one never comes.
  explicit Deadline(int timeoutMs);

  // What is left, in milliseconds, rounded up: 0 when it has come, -1 when it never comes. Fits poll().
  int remainingMs() const;

  // What is left, but no more than `limitMs`.
  int remainingMs(int limitMs) const;

  bool passed() const { return remainingMs() == 0; }

 private:
  long long endNs_;  // -1: never
};

}  // namespace zoripc
