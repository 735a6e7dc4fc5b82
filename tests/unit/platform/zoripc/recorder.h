// A callback's record of what it was told.
#pragma once

#include <zoripc.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

class Recorder {
 public:
  // To be registered with the recorder as its data.
  static void callback(void* data, const std::string& sender, const std::string& receiver, const std::string& name,
                       const zoripc::JSObject& message, unsigned flags) {
    auto* self = static_cast<Recorder*>(data);
    const std::lock_guard<std::mutex> hold(self->lock_);
    self->lines_.push_back(sender + ">" + receiver + " " + name + " " + message.dump() + " " + std::to_string(flags));
    self->changed_.notify_all();
  }

  // Waits for the record to have `count` lines, and returns it; after a minute, as it is then.
  std::vector<std::string> wait(std::size_t count) {
    std::unique_lock<std::mutex> hold(lock_);
    changed_.wait_for(hold, std::chrono::minutes(1), [&] { return lines_.size() >= count; });
    return lines_;
  }

  std::vector<std::string> lines() { return wait(0); }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  std::vector<std::string> lines_;
};
