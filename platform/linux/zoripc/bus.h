// The connection to the bus that carries notifications.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "base/deadline.h"
#include "base/descriptor.h"
#include "platform/linux/zoripc/mailbox.h"
#include "platform/linux/zoripc/notification_object.h"
#include "platform/linux/zoripc/worker_thread.h"

struct sd_bus;

namespace zoripc {

// Connects when it is first needed, and again after the bus has gone: for an application with an id by itself, every
// kReconnectMs, else on the next use. A thread of its own does the bus's work; callbacks run in the mailbox. Any thread
// may call. Never destroyed while its thread may run: close() first.
class Bus {
 public:
  // A bus that is there but does not answer is given up after this long, and counts as absent for a while, so that not
  // every caller waits for it anew.
  static constexpr int kConnectMs = 5000;
  static constexpr int kMuteMs = 10000;
  static constexpr int kReconnectMs = 1000;

  explicit Bus(Mailbox& mailbox);
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  // Takes `id` as this application's: owns its bus name now and after each new connection. An earlier, different id is
  // given up. False when another process has the id, after a line on standard error: this application has none then.
  // One that takes it while there is no connection keeps it: that is told likewise, and this application waits for it.
  [[nodiscard]] bool setId(const std::string& id);

  // Hands a notification to the bus; an empty sender means the id set before. 0 when that was done; a negative error
  // number without a bus, or when the notification is none that the bus carries. Failure to deliver it goes to the
  // mailbox: an error reply, whenever it comes, or the end of the receiver or the bus before any reply. Silence is
  // none.
  [[nodiscard]] int send(Notification notification);

  // Sends what is still waiting, for a bounded time, and ends the connection. Afterwards nothing can be sent.
  void close(int timeoutMs);

 private:
  struct Sent;

  [[nodiscard]] bool ensureOpen();
  [[nodiscard]] bool claimName(bool queue);
  [[nodiscard]] std::string ownerOf(const std::string& name) const;
  [[nodiscard]] int sendOnce(const Notification& notification);
  void retire();
  void dropRetired();
  void wake() const;
  void run();
  [[nodiscard]] int serve();
  [[nodiscard]] int serveGuarded();
  void waitForWork(int timeoutMs, std::unique_lock<std::mutex>& lock);
  void flush();

  Mailbox& mailbox_;
  std::mutex mutex_;  // of everything below
  std::string address_;
  std::string id_;
  Recipient recipient_;
  sd_bus* bus_ = nullptr;
  std::vector<sd_bus*> retired_;  // to be closed by the thread, which may be waiting on their descriptors
  base::Descriptor wakeFd_;
  bool closed_ = false;
  base::Deadline muteEnd_{0};
  WorkerThread thread_;
};

}  // namespace zoripc
