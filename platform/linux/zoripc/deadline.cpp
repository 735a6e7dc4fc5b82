#include "platform/linux/zoripc/deadline.h"

#include <algorithm>
#include <chrono>
#include <limits>

namespace zoripc {

namespace {

constexpr long long kNsPerMs = 1000000;

long long nowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
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

}  // namespace zoripc
