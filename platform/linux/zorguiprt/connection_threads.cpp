#include "platform/linux/zorguiprt/connection_threads.h"

#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

namespace jxplatform {

struct ConnectionThreads::State {
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t running = 0;
  bool finished = false;

  void end() {
    const std::lock_guard<std::mutex> lock(mutex);
    --running;
    changed.notify_all();
  }
};

ConnectionThreads::ConnectionThreads() : state_(std::make_shared<State>()) {}

bool ConnectionThreads::run(std::function<void()> connection) {
  {
    std::unique_lock<std::mutex> lock(state_->mutex);
    state_->changed.wait(lock, [this] { return state_->running < kMostConnections || state_->finished; });
    if (state_->finished) return false;
    ++state_->running;
  }
  const auto serve = [state = state_, connection = std::move(connection)] {
    try {
      connection();
    } catch (const std::exception&) {
      // There was no memory for its answer: it ends, and leaves its place to the next.
    }
    state->end();
  };
  try {
    std::thread(serve).detach();
  } catch (const std::exception&) {
    serve();  // no thread to be had, or no memory for one: the others wait a little
  }
  return true;
}

bool ConnectionThreads::finish(std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(state_->mutex);
  state_->finished = true;
  state_->changed.notify_all();
  return state_->changed.wait_for(lock, timeout, [this] { return state_->running == 0; });
}

void ConnectionThreads::join() {
  std::unique_lock<std::mutex> lock(state_->mutex);
  state_->changed.wait(lock, [this] { return state_->running == 0; });
}

}  // namespace jxplatform
