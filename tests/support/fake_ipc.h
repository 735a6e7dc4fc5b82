// A scripted stand-in for the notification functions of the IPC library: records every call and answers as told.
#pragma once

#include <zoripc.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class FakeIpc {
 public:
  // What a send does, on the sending thread: returns the result, and may queue deliveries.
  using Sending = std::function<int(const zoripc::JSObject& message)>;

  static FakeIpc& instance();

  // Forgets calls and scripts, and what is not delivered yet; not the registrations. Waits for a callback under way.
  void reset();

  // Every call so far with all its arguments, such as `ipcSetAppID("jxdownloader")`. A callback stands as its number in
  // the order of first use, "callback1", and its data as "null" or "data".
  std::vector<std::string> calls() const;
  // The messages of the sends alone, as JSON text.
  std::vector<std::string> sent() const;

  // What every later send does; without one sends return 0 and nothing comes.
  void onSend(Sending sending);
  // The results of the next calls of ipcRegisterUnicastError and ipcRegisterNotificationCB; 0 when used up.
  void unicastErrorResults(std::deque<int> results);
  void notificationResults(std::deque<int> results);
  // Runs within each registration of a notification, before it returns.
  void onRegistration(std::function<void()> hook);

  // Queues what the library's thread then does: calls every callback registered for the notification `name`.
  void deliver(const std::string& name, const zoripc::JSObject& message);
  // Likewise for the callbacks of notifications that could not be delivered.
  void reportFailure(const std::string& name, const zoripc::JSObject& message);
  // Calls the notification callbacks whatever they are registered for.
  void deliverAnyway(const std::string& name, const zoripc::JSObject& message);
  // Run on the library's thread before and after each callback.
  void aroundCallbacks(std::function<void()> before, std::function<void()> after);
  // Queues any other work for that thread, in the order with deliveries.
  void onThread(std::function<void()> work);
  // Blocks until everything queued has been done.
  void drain();

  // What the fakes of the library call.
  void setAppId(const char* id);
  int notify(const char* receiver, const char* name, const zoripc::JSObject& message, unsigned flags,
             const char* sender);
  int registerNotification(const char* name, zoripc::NotificationCallback callback, void* data, unsigned flags,
                           const char* sender);
  int registerUnicastError(zoripc::NotificationCallback callback, void* data);
  int unregisterUnicastError(zoripc::NotificationCallback callback, void* data);

 private:
  struct Registration {
    bool failure;
    std::string name;
    zoripc::NotificationCallback callback;
    void* data;
  };

  FakeIpc() = default;
  std::string describe(zoripc::NotificationCallback callback, void* data);
  void call(bool failure, bool anyName, const std::string& name, const zoripc::JSObject& message);
  void run();

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> calls_;
  std::vector<std::string> sent_;
  std::vector<zoripc::NotificationCallback> callbacks_;
  std::vector<Registration> registrations_;
  std::deque<int> unicastErrorResults_;
  std::deque<int> notificationResults_;
  Sending sending_;
  std::function<void()> registrationHook_;
  std::function<void()> before_;
  std::function<void()> after_;
  std::deque<std::function<void()>> work_;
  bool busy_ = false;
  bool started_ = false;  // the thread, which lives as long as the process
};
