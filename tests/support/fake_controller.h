// Records the notifications that are sent.
#pragma once

#include <zoripc.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

struct SentNotification {
  std::string receiver;
  std::string name;
  zoripc::JSObject message;
  unsigned flags = 0;
  std::string sender;
};

class FakeController {
 public:
  static FakeController& instance();

  void reset();

  // What every send returns; 0 at first.
  void setResult(int result);
  // Runs within each send.
  void onNotify(std::function<void()> hook);

  std::vector<SentNotification> sent() const;
  // The commands alone.
  std::vector<std::string> commands() const;

  int notify(const SentNotification& notification);

 private:
  mutable std::mutex mutex_;
  std::vector<SentNotification> sent_;
  std::function<void()> hook_;
  int result_ = 0;
};
