// A thread of the library's own.
#pragma once

#include <functional>
#include <memory>
#include <thread>

namespace zoripc {

// Runs one function, with every signal blocked: signals are the program's business. Its owner must outlive the function
// or never be destroyed.
class WorkerThread {
 public:
  // Starts it unless it has been started. False when the system gives no thread.
  [[nodiscard]] bool start(std::function<void()> body);

  bool started() const { return thread_.joinable(); }

  // True on the thread itself.
  bool isCurrent() const { return thread_.get_id() == std::this_thread::get_id(); }

  // Waits up to `timeoutMs` for the function to return, and lets go of it otherwise, or when called on the thread
  // itself: the process can end without it.
  void finish(int timeoutMs);

 private:
  struct End;
  std::shared_ptr<End> end_;
  std::thread thread_;
};

}  // namespace zoripc
