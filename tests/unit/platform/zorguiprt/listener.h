// An asynchronous page's callback for tests.
#pragma once

#include <gtest/gtest.h>
#include <zorguiprt.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

// An asynchronous page's callback that counts, and may be held.
struct Listener {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<int> results;
  std::thread::id thread;  // of the last call
  int begun = 0;
  bool held = false;

  static void report(void* self, int type, const zorgui::UICallbackData* info) {
    EXPECT_EQ(type, zorgui::kUICallbackResult);
    static_cast<Listener*>(self)->take(info->result);
  }

  void take(int result) {
    std::unique_lock<std::mutex> lock(mutex);
    ++begun;
    thread = std::this_thread::get_id();
    changed.notify_all();
    changed.wait(lock, [this] { return !held; });
    results.push_back(result);
    changed.notify_all();
  }

  void hold(bool hold) {
    const std::lock_guard<std::mutex> lock(mutex);
    held = hold;
    changed.notify_all();
  }

  void waitForBegun(int count) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return begun >= count; });
  }

  // All so far; waits for so many, up to a minute.
  std::vector<int> waitForResults(std::size_t count) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait_for(lock, std::chrono::minutes(1), [&] { return results.size() >= count; });
    return results;
  }
};
