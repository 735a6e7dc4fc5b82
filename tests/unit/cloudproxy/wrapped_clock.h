// The monotonic clock of the code under test, its sleeps and its waits on conditions, which the linker redirects here.
#pragma once

#include <pthread.h>

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace wrapped {

// The clock stands still, but for the sleeps of the code under test, which take no time and set it forward. It stands
// an hour ahead of the real one, so that no wait ends because the machine is busy. A clock that stands there already
// stays.
void stopClock();
// The clock stands so far in the past that every wait until a time of it is over at once.
void stopClockInThePast();

// Sets the clock forward.
void advanceMs(long ms);

// The sleeps so far, in milliseconds.
std::vector<long> sleepsMs();

// The ends of the waits so far, in nanoseconds from where the clock stood.
std::vector<long long> waitsNs();
// What waits return in place of waiting, one after the other; then they wait again.
void answerWaits(std::vector<int> results);
// In place of waiting, each wait lets go of its mutex, runs `work`, and returns 0.
void duringWaits(std::function<void()> work);
// Runs after each wait, on the thread that waited.
void afterWaits(std::function<void()> hook);

// The mutex of the last wait; null before the first.
pthread_mutex_t* mutexOfWaits();

// How often a condition was signalled so far, from any thread.
int signals();

// The calls that made condition variables and their attributes, in order, such as "setclock monotonic".
std::vector<std::string> conditionCalls();

}  // namespace wrapped
