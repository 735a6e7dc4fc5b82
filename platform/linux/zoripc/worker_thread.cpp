#include "platform/linux/zoripc/worker_thread.h"

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <mutex>
#include <utility>

namespace zoripc {

struct WorkerThread::End {
  std::mutex mutex;
  std::condition_variable reached;
  bool over = false;
};

bool WorkerThread::start(std::function<void()> body) {
  if (started()) return true;
  end_ = std::make_shared<End>();
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    thread_ = std::thread([run = std::move(body), end = end_] {
      run();
      const std::lock_guard<std::mutex> lock(end->mutex);
      end->over = true;
      end->reached.notify_all();
    });
  } catch (const std::exception&) {
    end_.reset();
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return started();
}

void WorkerThread::finish(int timeoutMs) {
  if (!started()) return;
  std::unique_lock<std::mutex> lock(end_->mutex);
  const bool over = !isCurrent() && end_->reached.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                                           [end = end_.get()] { return end->over; });
  lock.unlock();
  if (over) {
    thread_.join();
  } else {
    thread_.detach();
  }
}

}  // namespace zoripc
