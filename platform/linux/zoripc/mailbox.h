// What has come in for this application, and who wants it.
#pragma once

#include <zoripc.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/zoripc/worker_thread.h"

namespace zoripc {

struct Notification {
  std::string sender;  // application ids
  std::string receiver;
  std::string name;
  JSObject message;
  unsigned flags = 0;
};

// Hands notifications to the callbacks registered for them, one at a time, on a thread of its own that starts with the
// first of them. Any thread may call; callbacks may call too.
class Mailbox {
 public:
  // More than this waiting means that the callbacks do not keep up; further ones are refused.
  static constexpr std::size_t kMaxWaiting = 1000;

  // Wants the notifications `name` from `sender` (empty: from anybody). A repetition changes nothing.
  void want(const std::string& name, const std::string& sender, NotificationCallback callback, void* data);

  // Wants the reports of notifications that could not be delivered.
  void wantFailures(NotificationCallback callback, void* data);

  // Ends what wantFailures() with the same arguments began, and waits for a callback of it under way, unless called by
  // it. False when there is no such registration.
  [[nodiscard]] bool unwantFailures(NotificationCallback callback, void* data);

  // True when somebody wants the notifications `name` from `sender`.
  [[nodiscard]] bool wants(const std::string& name, const std::string& sender) const;

  // Puts in a notification for its callbacks, or a failure report for theirs. False when it cannot be taken: too many
  // wait, no thread is to be had, or the mailbox has been closed.
  [[nodiscard]] bool post(Notification notification) { return put({std::move(notification), false}); }
  [[nodiscard]] bool postFailure(Notification notification) { return put({std::move(notification), true}); }

  // No callback begins any more. Waits up to `timeoutMs` for one under way.
  void close(int timeoutMs);

 private:
  struct Letter {
    Notification notification;
    bool failure;
  };
  struct Registration {
    std::uint64_t number;
    bool failure;
    std::string name;
    std::string sender;
    NotificationCallback callback;
    void* data;

    [[nodiscard]] bool matches(const Letter& letter) const;
    [[nodiscard]] bool sameAs(const Registration& other) const;
  };

  void add(Registration registration);
  [[nodiscard]] bool put(Letter letter);
  void run();
  void deliver(const Letter& letter, std::unique_lock<std::mutex>& lock);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Registration> registrations_;
  std::uint64_t lastNumber_ = 0;
  std::uint64_t running_ = 0;  // number of the registration whose callback runs; 0: none
  std::deque<Letter> waiting_;
  bool closed_ = false;
  WorkerThread thread_;
};

}  // namespace zoripc
