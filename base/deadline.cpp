#include "base/deadline.h"

#include <ctime>

#include <algorithm>
#include <limits>

namespace base {

namespace {

constexpr long long kNsPerMs = 1000000;

long long nowNs() {
  constexpr long long kNsPerSecond = 1000000000;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

}  // namespace

Deadline::Deadline(int timeoutMs) : endNs_(timeoutMs < 0 ? -1 : nowNs() + timeoutMs * kNsPerMs) {}

int Deadline::remainingMs() const {
  if (endNs_ < 0) return -1;
  const long long leftNs = endNs_ - nowNs();
  if (leftNs <= 0) return 0;
  const long long leftMs = (leftNs + kNsPerMs - 1) / kNsPerMs;
  return static_cast<int>(std::min<long long>(leftMs, std::numeric_limits<int>::max()));
}

int Deadline::remainingMs(int limitMs) const {
  const int left = remainingMs();
  return left < 0 ? limitMs : std::min(left, limitMs);
}

}  // namespace base
