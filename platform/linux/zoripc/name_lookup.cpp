#include "platform/linux/zoripc/name_lookup.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace zoripc {

namespace {

// Shared by the caller and the thread; the later of the two lets it go.
struct LookUp {
  std::mutex lock;
  std::condition_variable done;
  bool finished = false;
  AddressList addresses;
};

void run(const std::shared_ptr<LookUp>& shared, const std::string& host, unsigned short port) {
  AddressList found;
  try {
    found = resolve(host, port, 0);
  } catch (const std::bad_alloc&) {
    found = nullptr;  // reported as a name without an address
  }
  const std::lock_guard<std::mutex> hold(shared->lock);
  shared->addresses = std::move(found);
  shared->finished = true;
  shared->done.notify_one();
}

bool waitFor(LookUp& shared, std::unique_lock<std::mutex>& hold, const base::Deadline& deadline) {
  const auto finished = [&shared] { return shared.finished; };
  const int timeoutMs = deadline.remainingMs();
  if (timeoutMs >= 0) return shared.done.wait_for(hold, std::chrono::milliseconds(timeoutMs), finished);
  shared.done.wait(hold, finished);
  return true;
}

}  // namespace

AddressList lookUp(const std::string& host, unsigned short port, const base::Deadline& deadline) {
  if (AddressList numeric = resolve(host, port, AI_NUMERICHOST)) return numeric;
  const auto shared = std::make_shared<LookUp>();
  try {
    std::thread(run, shared, host, port).detach();
  } catch (const std::system_error&) {
    errno = EAGAIN;
    return nullptr;
  }
  std::unique_lock<std::mutex> hold(shared->lock);
  const bool inTime = waitFor(*shared, hold, deadline);
  if (!inTime) {
    errno = ETIMEDOUT;
    return nullptr;
  }
  if (!shared->addresses) errno = EHOSTUNREACH;
  return std::move(shared->addresses);
}

}  // namespace zoripc
