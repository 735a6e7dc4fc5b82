#include "platform/linux/services/cloudproxyd/gateway_check.h"

#include <openssl/crypto.h>
#include <sys/eventfd.h>

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

#include "base/deadline.h"
#include "base/descriptor.h"
#include "base/ignore.h"

namespace cloudproxyd {

// What the checks share; lives as long as any of their threads.
struct GatewayChecker::Checks {
  // On a thread of its own, that is counted until nothing of it is left: once the count is 0 the process may end, and
  // with it what TLS stands on.
  void run(Done done) {
    try {
      done(ask());
    } catch (const std::exception&) {
      // A report that there is no memory for is lost; the requester's time-out tells.
    }
    done = nullptr;
    OPENSSL_thread_stop();
    const std::lock_guard<std::mutex> lock(mutex);
    --underWay;
    changed.notify_all();
  }

  GatewayAnswer ask() const {
    try {
      return askGateway(gateway, base::Deadline(timeoutMs), breakFd.get());
    } catch (const std::exception& error) {
      return {false, kNoMemory, error.what()};
    }
  }

  Gateway gateway;
  int timeoutMs = 0;
  base::Descriptor breakFd{eventfd(0, EFD_CLOEXEC)};  // readable once no check is to go on
  std::mutex mutex;                                   // of everything below
  std::condition_variable changed;
  int underWay = 0;
  bool finished = false;
};

GatewayChecker::GatewayChecker(Gateway gateway, int timeoutMs) : checks_(std::make_shared<Checks>()) {
  checks_->gateway = std::move(gateway);
  checks_->timeoutMs = timeoutMs;
}

// What still runs has its share of the checks.
GatewayChecker::~GatewayChecker() { base::ignore(finish(0)); }

bool GatewayChecker::start(Done done) {
  const std::lock_guard<std::mutex> lock(checks_->mutex);
  if (checks_->finished || checks_->underWay >= kMaxChecks) return false;
  try {
    std::thread([checks = checks_, done = std::move(done)]() mutable { checks->run(std::move(done)); }).detach();
  } catch (const std::exception&) {
    return false;
  }
  ++checks_->underWay;
  return true;
}

bool GatewayChecker::finish(int timeoutMs) {
  std::unique_lock<std::mutex> lock(checks_->mutex);
  checks_->finished = true;
  eventfd_write(checks_->breakFd.get(), 1);
  return checks_->changed.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                   [this] { return checks_->underWay == 0; });
}

}  // namespace cloudproxyd
