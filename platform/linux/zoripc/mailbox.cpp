#include "platform/linux/zoripc/mailbox.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace zoripc {

namespace {

void call(NotificationCallback callback, void* data, const Notification& notification) {
  try {
    callback(data, notification.sender, notification.receiver, notification.name, notification.message,
             notification.flags);
  } catch (...) {
    std::fprintf(stderr, "libzoripc: the callback for %s threw an exception\n", notification.name.c_str());
  }
}

}  // namespace

bool Mailbox::Registration::matches(const Letter& letter) const {
  if (failure || letter.failure) return failure == letter.failure;
  return name == letter.notification.name && (sender.empty() || sender == letter.notification.sender);
}

bool Mailbox::Registration::sameAs(const Registration& other) const {
  return failure == other.failure && name == other.name && sender == other.sender && callback == other.callback &&
         data == other.data;
}

void Mailbox::want(const std::string& name, const std::string& sender, NotificationCallback callback, void* data) {
  add({0, false, name, sender, callback, data});
}

void Mailbox::wantFailures(NotificationCallback callback, void* data) { add({0, true, "", "", callback, data}); }

void Mailbox::add(Registration registration) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const Registration& known : registrations_) {
    if (known.sameAs(registration)) return;
  }
  registration.number = ++lastNumber_;
  registrations_.push_back(std::move(registration));
}

bool Mailbox::unwantFailures(NotificationCallback callback, void* data) {
  std::unique_lock<std::mutex> lock(mutex_);
  const Registration wanted{0, true, "", "", callback, data};
  const auto found = std::find_if(registrations_.begin(), registrations_.end(),
                                  [&](const Registration& known) { return known.sameAs(wanted); });
  if (found == registrations_.end()) return false;
  const std::uint64_t number = found->number;
  registrations_.erase(found);
  if (!thread_.isCurrent()) changed_.wait(lock, [&] { return running_ != number; });
  return true;
}

bool Mailbox::wants(const std::string& name, const std::string& sender) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::any_of(registrations_.begin(), registrations_.end(), [&](const Registration& known) {
    return !known.failure && known.name == name && (known.sender.empty() || known.sender == sender);
  });
}

bool Mailbox::put(Letter letter) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (closed_ || waiting_.size() >= kMaxWaiting || !thread_.start([this] { run(); })) return false;
  waiting_.push_back(std::move(letter));
  changed_.notify_all();
  return true;
}

void Mailbox::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return closed_ || !waiting_.empty(); });
    if (closed_) return;
    const Letter letter = std::move(waiting_.front());
    waiting_.pop_front();
    deliver(letter, lock);
  }
}

// Looks each registration up anew, because callbacks and other threads may end one meanwhile; those that are added
// meanwhile do not get this letter.
void Mailbox::deliver(const Letter& letter, std::unique_lock<std::mutex>& lock) {
  const std::uint64_t last = lastNumber_;
  for (std::uint64_t done = 0; !closed_;) {
    const auto next = std::find_if(registrations_.begin(), registrations_.end(), [&](const Registration& known) {
      return known.number > done && known.number <= last && known.matches(letter);
    });
    if (next == registrations_.end()) return;
    done = running_ = next->number;
    const NotificationCallback callback = next->callback;
    void* const data = next->data;
    lock.unlock();
    call(callback, data, letter.notification);
    lock.lock();
    running_ = 0;
    changed_.notify_all();
  }
}

void Mailbox::close(int timeoutMs) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    changed_.notify_all();
  }
  thread_.finish(timeoutMs);
}

}  // namespace zoripc
