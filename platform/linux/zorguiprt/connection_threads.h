// Who serves the screen's connections.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace jxplatform {

// Runs each connection on a thread of its own, so that those that wait for a page keep nobody else waiting. With
// kMostConnections of them the next stays in the system's queue until one has ended.
class ConnectionThreads {
 public:
  static constexpr std::size_t kMostConnections = 64;

  ConnectionThreads();

  // Runs `connection` on a new thread, or on this one when there is none to be had; blocks while there are too many.
  // What it throws ends the connection alone. False, and nothing done, once finish() was called.
  [[nodiscard]] bool run(std::function<void()> connection);

  // Lets no more in, and waits at most `timeout` for those that run. True when all have ended.
  [[nodiscard]] bool finish(std::chrono::milliseconds timeout);

  // After finish(): waits for those that run, as long as they take.
  void join();

 private:
  struct State;
  std::shared_ptr<State> state_;  // shared with the threads, which may outlast this object
};

}  // namespace jxplatform
