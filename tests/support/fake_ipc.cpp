#include "tests/support/fake_ipc.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

std::string quoted(const char* text) { return text == nullptr ? "null" : '"' + std::string(text) + '"'; }

int next(std::deque<int>& results) {
  if (results.empty()) return 0;
  const int result = results.front();
  results.pop_front();
  return result;
}

}  // namespace

// Never destroyed, because its thread ends only with the process.
FakeIpc& FakeIpc::instance() {
  static auto* const ipc = new FakeIpc();
  return *ipc;
}

void FakeIpc::reset() {
  std::unique_lock<std::mutex> lock(mutex_);
  work_.clear();
  changed_.wait(lock, [this] { return !busy_; });
  calls_.clear();
  sent_.clear();
  unicastErrorResults_.clear();
  notificationResults_.clear();
  sending_ = nullptr;
  registrationHook_ = nullptr;
  before_ = nullptr;
  after_ = nullptr;
}

std::vector<std::string> FakeIpc::calls() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return calls_;
}

std::vector<std::string> FakeIpc::sent() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return sent_;
}

void FakeIpc::onSend(Sending sending) {
  const std::lock_guard<std::mutex> lock(mutex_);
  sending_ = std::move(sending);
}

void FakeIpc::unicastErrorResults(std::deque<int> results) {
  const std::lock_guard<std::mutex> lock(mutex_);
  unicastErrorResults_ = std::move(results);
}

void FakeIpc::notificationResults(std::deque<int> results) {
  const std::lock_guard<std::mutex> lock(mutex_);
  notificationResults_ = std::move(results);
}

void FakeIpc::onRegistration(std::function<void()> hook) {
  const std::lock_guard<std::mutex> lock(mutex_);
  registrationHook_ = std::move(hook);
}

void FakeIpc::deliver(const std::string& name, const zoripc::JSObject& message) {
  onThread([this, name, message] { call(false, false, name, message); });
}

void FakeIpc::reportFailure(const std::string& name, const zoripc::JSObject& message) {
  onThread([this, name, message] { call(true, true, name, message); });
}

void FakeIpc::deliverAnyway(const std::string& name, const zoripc::JSObject& message) {
  onThread([this, name, message] { call(false, true, name, message); });
}

void FakeIpc::aroundCallbacks(std::function<void()> before, std::function<void()> after) {
  const std::lock_guard<std::mutex> lock(mutex_);
  before_ = std::move(before);
  after_ = std::move(after);
}

void FakeIpc::onThread(std::function<void()> work) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!started_) std::thread([this] { run(); }).detach();
  started_ = true;
  work_.push_back(std::move(work));
  changed_.notify_all();
}

void FakeIpc::drain() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return work_.empty() && !busy_; });
}

void FakeIpc::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return !work_.empty(); });
    const std::function<void()> work = std::move(work_.front());
    work_.pop_front();
    busy_ = true;
    lock.unlock();
    work();
    lock.lock();
    busy_ = false;
    changed_.notify_all();
  }
}

void FakeIpc::call(bool failure, bool anyName, const std::string& name, const zoripc::JSObject& message) {
  const std::string sender = "1";
  const std::string receiver = "jxdownloader";
  std::vector<Registration> wanted;
  std::function<void()> before;
  std::function<void()> after;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::copy_if(registrations_.begin(), registrations_.end(), std::back_inserter(wanted),
                 [&](const Registration& one) { return one.failure == failure && (anyName || one.name == name); });
    before = before_;
    after = after_;
  }
  for (const Registration& one : wanted) {
    if (before) before();
    one.callback(one.data, sender, receiver, name, message, 0);
    if (after) after();
  }
}

// Under the lock.
std::string FakeIpc::describe(zoripc::NotificationCallback callback, void* data) {
  auto found = std::find(callbacks_.begin(), callbacks_.end(), callback);
  if (found == callbacks_.end()) found = callbacks_.insert(found, callback);
  return "callback" + std::to_string(found - callbacks_.begin() + 1) + ", " + (data == nullptr ? "null" : "data");
}

void FakeIpc::setAppId(const char* id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  calls_.push_back("ipcSetAppID(" + quoted(id) + ")");
}

int FakeIpc::notify(const char* receiver, const char* name, const zoripc::JSObject& message, unsigned flags,
                    const char* sender) {
  Sending sending;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back("ipcNotify(" + quoted(receiver) + ", " + quoted(name) + ", " + message.dump() + ", " +
                     std::to_string(flags) + ", " + quoted(sender) + ")");
    sent_.push_back(message.dump());
    sending = sending_;
  }
  return sending ? sending(message) : 0;
}

int FakeIpc::registerNotification(const char* name, zoripc::NotificationCallback callback, void* data, unsigned flags,
                                  const char* sender) {
  int result = 0;
  std::function<void()> hook;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back("ipcRegisterNotificationCB(" + quoted(name) + ", " + describe(callback, data) + ", " +
                     std::to_string(flags) + ", " + quoted(sender) + ")");
    result = next(notificationResults_);
    if (result == 0) registrations_.push_back({false, name, callback, data});
    hook = registrationHook_;
  }
  if (hook) hook();
  return result;
}

int FakeIpc::registerUnicastError(zoripc::NotificationCallback callback, void* data) {
  const std::lock_guard<std::mutex> lock(mutex_);
  calls_.push_back("ipcRegisterUnicastError(" + describe(callback, data) + ")");
  const int result = next(unicastErrorResults_);
  if (result == 0) registrations_.push_back({true, "", callback, data});
  return result;
}

int FakeIpc::unregisterUnicastError(zoripc::NotificationCallback callback, void* data) {
  const std::lock_guard<std::mutex> lock(mutex_);
  calls_.push_back("ipcUnregisterUnicastError(" + describe(callback, data) + ")");
  const auto found = std::find_if(registrations_.begin(), registrations_.end(), [&](const Registration& one) {
    return one.failure && one.callback == callback && one.data == data;
  });
  if (found == registrations_.end()) return -1;
  registrations_.erase(found);
  return 0;
}

namespace zoripc {

void ipcSetAppID(const char* id) { FakeIpc::instance().setAppId(id); }

int ipcNotify(const char* receiver, const char* name, const JSObject& message, unsigned flags, const char* sender) {
  return FakeIpc::instance().notify(receiver, name, message, flags, sender);
}

int ipcRegisterNotificationCB(const char* name, NotificationCallback callback, void* data, unsigned flags,
                              const char* sender) {
  return FakeIpc::instance().registerNotification(name, callback, data, flags, sender);
}

int ipcRegisterUnicastError(NotificationCallback callback, void* data) {
  return FakeIpc::instance().registerUnicastError(callback, data);
}

int ipcUnregisterUnicastError(NotificationCallback callback, void* data) {
  return FakeIpc::instance().unregisterUnicastError(callback, data);
}

}  // namespace zoripc
