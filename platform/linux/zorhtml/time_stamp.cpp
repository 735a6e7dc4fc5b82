#include <zorhtml.h>

#include <algorithm>
#include <limits>

namespace zorhtml {

namespace {

constexpr long long kLargest = std::numeric_limits<long>::max();
constexpr long long kSmallest = std::numeric_limits<long>::min();

// The sum of two numbers of seconds, or the end of the range that it would pass.
long saturatedSum(long long left, long long right) {
  if (right > 0 && left > kLargest - right) return kLargest;
  if (right < 0 && left < kSmallest - right) return kSmallest;
  return static_cast<long>(left + right);
}

}  // namespace

TimeStamp TimeStamp::Monotonic() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return {static_cast<long>(now.tv_sec), now.tv_nsec};
}

TimeStamp TimeStamp::operator+(const TimeStamp& other) const {
  return {saturatedSum(time_.tv_sec, other.time_.tv_sec), time_.tv_nsec + other.time_.tv_nsec};
}

TimeStamp TimeStamp::operator-(const TimeStamp& other) const {
  // Minus the smallest number is no number; one second less makes no difference at that end.
  const long long negated = -std::max<long long>(other.time_.tv_sec, kSmallest + 1);
  return {saturatedSum(time_.tv_sec, negated), time_.tv_nsec - other.time_.tv_nsec};
}

bool TimeStamp::operator<(const TimeStamp& other) const {
  if (time_.tv_sec != other.time_.tv_sec) return time_.tv_sec < other.time_.tv_sec;
  return time_.tv_nsec < other.time_.tv_nsec;
}

}  // namespace zorhtml
