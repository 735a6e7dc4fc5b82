#include "tests/unit/cloudproxy/wrapped_clock.h"

#include <pthread.h>
#include <zorhtml.h>

#include <atomic>
#include <utility>

namespace wrapped {

namespace {

constexpr long long kNsPerSecond = 1000000000;
constexpr long kNsPerMs = 1000000;
constexpr long kPastSeconds = -1000000;
constexpr long kAheadSeconds = 3600;

struct State {
  long long nowNs = 0;
  std::vector<long> sleeps;
  std::vector<long long> waits;
  std::vector<int> waitAnswers;
  std::function<void()> waitWork;
  std::function<void()> waitHook;
  pthread_mutex_t* waitMutex = nullptr;
  std::vector<std::string> conditions;
};

std::atomic<int> signalCount{0};

// The code under test uses the clock on one thread.
State& state() {
  static State state;
  return state;
}

long long toNs(const timespec& time) { return static_cast<long long>(time.tv_sec) * kNsPerSecond + time.tv_nsec; }

}  // namespace

void stopClock() {
  if (state().nowNs > 0) return;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  state().nowNs = toNs(now) + kAheadSeconds * kNsPerSecond;
}

void stopClockInThePast() { state().nowNs = kPastSeconds * kNsPerSecond; }

void advanceMs(long ms) { state().nowNs += ms * kNsPerMs; }

std::vector<long> sleepsMs() { return state().sleeps; }
std::vector<long long> waitsNs() { return state().waits; }
void answerWaits(std::vector<int> results) { state().waitAnswers = std::move(results); }
void duringWaits(std::function<void()> work) { state().waitWork = std::move(work); }
void afterWaits(std::function<void()> hook) { state().waitHook = std::move(hook); }
pthread_mutex_t* mutexOfWaits() { return state().waitMutex; }
int signals() { return signalCount; }
std::vector<std::string> conditionCalls() { return state().conditions; }

}  // namespace wrapped

using wrapped::state;

namespace zorhtml {

TimeStamp TimeStamp::Monotonic() {
  return {static_cast<long>(state().nowNs / wrapped::kNsPerSecond),
          static_cast<long>(state().nowNs % wrapped::kNsPerSecond)};
}

}  // namespace zorhtml

extern "C" {

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* end);
int __real_pthread_cond_signal(pthread_cond_t* condition);
int __real_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attribute);
int __real_pthread_condattr_init(pthread_condattr_t* attribute);
int __real_pthread_condattr_setclock(pthread_condattr_t* attribute, clockid_t clock);
int __real_pthread_condattr_destroy(pthread_condattr_t* attribute);

int __wrap_nanosleep(const timespec* time, timespec* /*rest*/) {
  state().sleeps.push_back(static_cast<long>(wrapped::toNs(*time) / wrapped::kNsPerMs));
  state().nowNs += wrapped::toNs(*time);
  return 0;
}

int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* end) {
  state().waits.push_back(wrapped::toNs(*end) - state().nowNs);
  state().waitMutex = mutex;
  int result = 0;
  if (state().waitWork) {
    pthread_mutex_unlock(mutex);
    state().waitWork();
    pthread_mutex_lock(mutex);
  } else if (state().waitAnswers.empty()) {
    result = __real_pthread_cond_timedwait(condition, mutex, end);
  } else {
    result = state().waitAnswers.front();
    state().waitAnswers.erase(state().waitAnswers.begin());
  }
  if (state().waitHook) state().waitHook();
  return result;
}

int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
  ++wrapped::signalCount;
  return __real_pthread_cond_signal(condition);
}

int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attribute) {
  state().conditions.emplace_back(attribute == nullptr ? "condition" : "condition with attribute");
  return __real_pthread_cond_init(condition, attribute);
}

int __wrap_pthread_condattr_init(pthread_condattr_t* attribute) {
  state().conditions.emplace_back("attribute");
  return __real_pthread_condattr_init(attribute);
}

int __wrap_pthread_condattr_setclock(pthread_condattr_t* attribute, clockid_t clock) {
  state().conditions.emplace_back(clock == CLOCK_MONOTONIC ? "setclock monotonic" : "setclock another");
  return __real_pthread_condattr_setclock(attribute, clock);
}

int __wrap_pthread_condattr_destroy(pthread_condattr_t* attribute) {
  state().conditions.emplace_back("destroy attribute");
  return __real_pthread_condattr_destroy(attribute);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

}  // extern "C"
