#include "tests/support/fake_controller.h"

#include <utility>

FakeController& FakeController::instance() {
  static FakeController controller;
  return controller;
}

void FakeController::reset() {
  const std::lock_guard<std::mutex> lock(mutex_);
  sent_.clear();
  hook_ = nullptr;
  result_ = 0;
}

void FakeController::setResult(int result) {
  const std::lock_guard<std::mutex> lock(mutex_);
  result_ = result;
}

void FakeController::onNotify(std::function<void()> hook) {
  const std::lock_guard<std::mutex> lock(mutex_);
  hook_ = std::move(hook);
}

std::vector<SentNotification> FakeController::sent() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return sent_;
}

std::vector<std::string> FakeController::commands() const {
  std::vector<std::string> commands;
  for (const SentNotification& notification : sent()) {
    commands.push_back(notification.message["libmac_cmd"].getString());
  }
  return commands;
}

int FakeController::notify(const SentNotification& notification) {
  std::function<void()> hook;
  int result = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    sent_.push_back(notification);
    hook = hook_;
    result = result_;
  }
  if (hook) hook();
  return result;
}

namespace zoripc {

int ipcNotify(const char* receiver, const char* name, const JSObject& message, unsigned flags, const char* sender) {
  return FakeController::instance().notify({receiver, name, message, flags, sender});
}

}  // namespace zoripc
