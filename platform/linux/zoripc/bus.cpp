#include "platform/linux/zoripc/bus.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <limits>
#include <memory>
#include <utility>

#include "base/deadline.h"
#include "base/file_io.h"
#include "base/ignore.h"
#include "platform/linux/zoripc/application_name.h"
#include "platform/linux/zoripc/bus_address.h"

namespace zoripc {

namespace {

constexpr std::uint64_t kUsPerMs = 1000;
constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();
constexpr int kFlushMs = 1000;
// Messages handled before the lock is given up for a moment.
constexpr int kBatch = 64;

struct DropMessage {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, DropMessage>;

// Milliseconds until the bus wants to be processed again; -1: when something comes.
int timeoutOf(sd_bus* bus) {
  std::uint64_t dueUs = 0;
  if (sd_bus_get_timeout(bus, &dueUs) < 0 || dueUs == kNoLimit) return -1;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const std::uint64_t nowUs =
      static_cast<std::uint64_t>(now.tv_sec) * 1000000U + static_cast<std::uint64_t>(now.tv_nsec) / 1000U;
  if (dueUs <= nowUs) return 0;
  return static_cast<int>(std::min<std::uint64_t>((dueUs - nowUs + kUsPerMs - 1) / kUsPerMs, 3600000U));
}

bool isDisconnection(int error) {
  return error == -ENOTCONN || error == -ECONNRESET || error == -EPIPE || error == -ESHUTDOWN;
}

// Signs on to the bus; the library's own waiting for that has no limit of ours.
bool waitReady(sd_bus* bus, int timeoutMs) {
  const base::Deadline deadline(timeoutMs);
  while (sd_bus_is_ready(bus) <= 0) {
    const int result = sd_bus_process(bus, nullptr);
    if (result < 0) return false;
    if (result > 0) continue;
    const int leftMs = deadline.remainingMs();
    if (leftMs == 0 || sd_bus_wait(bus, static_cast<std::uint64_t>(leftMs) * kUsPerMs) < 0) return false;
  }
  return true;
}

// A started connection, or null.
sd_bus* connectTo(const std::string& address, Recipient* recipient) {
  sd_bus* bus = nullptr;
  if (sd_bus_new(&bus) < 0) return nullptr;
  if (sd_bus_set_address(bus, address.c_str()) >= 0 && sd_bus_set_bus_client(bus, 1) >= 0 &&
      sd_bus_set_method_call_timeout(bus, Bus::kConnectMs * kUsPerMs) >= 0 &&
      addNotificationObject(bus, recipient) >= 0 && sd_bus_start(bus) >= 0 && waitReady(bus, Bus::kConnectMs)) {
    return bus;
  }
  sd_bus_close_unref(bus);
  return nullptr;
}

}  // namespace

// A notification that has not been acknowledged yet. It lives as long as the bus may still report on it. What goes
// without an acknowledgement, because it was refused, or the receiver or the bus has gone, has not been delivered.
// There is no limit of time, since a receiver may acknowledge after its answer, or never: a report at the end of such a
// limit would meet whatever the application waits for by then. The bus limits how many may be under way.
struct Bus::Sent {
  Bus& bus;
  Notification notification;
  bool acknowledged = false;

  static int onReply(sd_bus_message* reply, void* userData, sd_bus_error* /*error*/) {
    static_cast<Sent*>(userData)->acknowledged = sd_bus_message_is_method_error(reply, nullptr) == 0;
    return 1;
  }

  static void onDestroy(void* userData) {
    const std::unique_ptr<Sent> sent(static_cast<Sent*>(userData));
    if (sent->acknowledged || sent->bus.closed_) return;
    try {
      base::ignore(sent->bus.mailbox_.postFailure(std::move(sent->notification)));  // one that is refused is lost, too
    } catch (const std::exception&) {
      return;  // a report that there is no memory for is lost; the bus library, which called, must not see it
    }
  }
};

Bus::Bus(Mailbox& mailbox)
    : mailbox_(mailbox),
      address_(busAddress()),
      recipient_{mailbox, id_},
      wakeFd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

bool Bus::setId(const std::string& id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (closed_ || id == id_) return true;
  const bool open = ensureOpen();
  if (open && !id_.empty()) sd_bus_release_name(bus_, busNameOf(id_).c_str());
  id_ = id;
  if (id_.empty()) return true;
  if (open && !claimName(false)) {
    id_.clear();
    return false;
  }
  // Without a bus as well: the thread is what finds one later.
  base::ignore(thread_.start([this] { run(); }));  // where none is to be had, the next use tries again
  wake();
  return true;
}

int Bus::send(Notification notification) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (closed_ || notification.receiver.empty()) return -EINVAL;
  if (notification.sender.empty()) notification.sender = id_;
  if (!ensureOpen()) return -ENOTCONN;
  int result = sendOnce(notification);
  // The bus may have gone since the last use and be back already.
  if (isDisconnection(result) && ensureOpen()) result = sendOnce(notification);
  wake();
  return result < 0 ? result : 0;
}

int Bus::sendOnce(const Notification& notification) {
  sd_bus_message* made = nullptr;
  int result = sd_bus_message_new_method_call(bus_, &made, busNameOf(notification.receiver).c_str(), kNotificationPath,
                                              kNotificationInterface, kNotifyMethod);
  if (result < 0) return result;
  const Message call(made);
  result = sd_bus_message_append(made, kNotifySignature, notification.name.c_str(), notification.message.dump().c_str(),
                                 notification.flags, notification.sender.c_str());
  if (result < 0) return result;
  sd_bus_message_set_auto_start(made, 0);
  auto sent = std::make_unique<Sent>(Sent{*this, notification});
  sd_bus_slot* slot = nullptr;
  result = sd_bus_call_async(bus_, &slot, made, Sent::onReply, sent.get(), kNoLimit);
  if (result < 0) return result;
  base::ignore(sent.release());  // to onDestroy
  sd_bus_slot_set_destroy_callback(slot, Sent::onDestroy);
  sd_bus_slot_set_floating(slot, 1);  // the bus keeps it until the reply has come
  sd_bus_slot_unref(slot);
  return 0;
}

// True when there is a connection to work with.
bool Bus::ensureOpen() {
  if (bus_ != nullptr && sd_bus_is_open(bus_) > 0) return true;
  retire();
  if (address_.empty() || !wakeFd_ || !muteEnd_.passed()) return false;
  const base::Deadline patience(kConnectMs);
  bus_ = connectTo(address_, &recipient_);
  if (bus_ == nullptr) {
    if (patience.passed()) muteEnd_ = base::Deadline(kMuteMs);
    return false;
  }
  if (!thread_.start([this] { run(); })) {
    retire();
    dropRetired();
    return false;
  }
  if (!id_.empty()) base::ignore(claimName(true));  // who has it instead has been told
  return true;
}

// False when another process has the name; with `queue` we get it when that one ends.
bool Bus::claimName(bool queue) {
  const std::string name = busNameOf(id_);
  const int result = sd_bus_request_name(bus_, name.c_str(), queue ? SD_BUS_NAME_QUEUE : 0);
  if (result > 0 || result == -EALREADY || isDisconnection(result)) return true;
  if (result == 0) {
    std::fprintf(stderr,
                 "libzoripc: %s has taken the id %s on this bus; what is sent to it goes there until that ends\n",
                 ownerOf(name).c_str(), id_.c_str());
  } else if (result == -EEXIST) {
    std::fprintf(stderr, "libzoripc: %s has the id %s on this bus; end it first\n", ownerOf(name).c_str(), id_.c_str());
  } else {
    std::fprintf(stderr, "libzoripc: the bus does not let us have the name %s: %s\n", name.c_str(),
                 base::errorText(-result).c_str());
  }
  return result != 0 && result != -EEXIST;
}

// For people.
std::string Bus::ownerOf(const std::string& name) const {
  sd_bus_creds* found = nullptr;
  if (sd_bus_get_name_creds(bus_, name.c_str(), SD_BUS_CREDS_PID, &found) < 0) return "another process";
  const std::unique_ptr<sd_bus_creds, decltype(&sd_bus_creds_unref)> owner(found, sd_bus_creds_unref);
  pid_t process = 0;
  if (sd_bus_creds_get_pid(found, &process) < 0) return "another process";
  return "process " + std::to_string(process);
}

void Bus::retire() {
  if (bus_ != nullptr) retired_.push_back(bus_);
  bus_ = nullptr;
}

void Bus::dropRetired() {
  for (sd_bus* bus : retired_) sd_bus_close_unref(bus);
  retired_.clear();
}

void Bus::wake() const { eventfd_write(wakeFd_.get(), 1); }

void Bus::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!closed_) waitForWork(serveGuarded(), lock);
  flush();
  retire();
  dropRetired();
}

// Without memory the work waits for the next attempt.
int Bus::serveGuarded() {
  try {
    dropRetired();
    return serve();
  } catch (const std::exception&) {
    return kReconnectMs;
  }
}

// Does what there is to do, and tells for how many milliseconds to wait then.
int Bus::serve() {
  if (bus_ == nullptr) {
    if (id_.empty()) return -1;
    if (!ensureOpen()) return kReconnectMs;
  }
  int result = 1;
  for (int i = 0; i < kBatch && result > 0; ++i) result = sd_bus_process(bus_, nullptr);
  if (result > 0) return 0;
  if (result == 0) return timeoutOf(bus_);
  // The bus has gone; what nobody acknowledged is reported with it. It may be back at once.
  retire();
  dropRetired();
  return 0;
}

void Bus::waitForWork(int timeoutMs, std::unique_lock<std::mutex>& lock) {
  std::array<pollfd, 2> entries{{{wakeFd_.get(), POLLIN, 0}, {-1, 0, 0}}};
  if (bus_ != nullptr) entries[1] = {sd_bus_get_fd(bus_), static_cast<short>(sd_bus_get_events(bus_)), 0};
  lock.unlock();
  poll(entries.data(), entries.size(), timeoutMs);
  eventfd_t ignored = 0;
  eventfd_read(wakeFd_.get(), &ignored);
  lock.lock();
}

void Bus::flush() {
  const base::Deadline deadline(kFlushMs);
  while (bus_ != nullptr && sd_bus_process(bus_, nullptr) >= 0 && !deadline.passed()) {
    const int events = sd_bus_get_events(bus_);
    if (events < 0 || (events & POLLOUT) == 0) return;
    pollfd entry{sd_bus_get_fd(bus_), POLLOUT, 0};
    poll(&entry, 1, deadline.remainingMs());
  }
}

void Bus::close(int timeoutMs) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    wake();
  }
  thread_.finish(timeoutMs);
}

}  // namespace zoripc
