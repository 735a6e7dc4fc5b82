// Whether the cloud's gateway can be reached.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/linux/services/cloudproxyd/gateway_request.h"

namespace cloudproxyd {

// Makes checks, each on a thread of its own. Any thread may call; what it calls back runs on the thread of the check
// and must not throw.
class GatewayChecker {
 public:
  // A check that has no answer after this has failed, whatever it was doing. The requester waits 10 seconds.
  static constexpr int kTimeoutMs = 8000;
  // More at once are refused.
  static constexpr int kMaxChecks = 4;

  using Done = std::function<void(const GatewayAnswer& answer)>;

  explicit GatewayChecker(Gateway gateway, int timeoutMs = kTimeoutMs);
  GatewayChecker(const GatewayChecker&) = delete;
  GatewayChecker& operator=(const GatewayChecker&) = delete;
  ~GatewayChecker();

  // Begins a check and returns; `done` is called once when it has ended, within the time-out. False when no more can
  // begin; then it is not called.
  [[nodiscard]] bool start(Done done);

  // Breaks off what is under way, which is then answered so, lets nothing more begin, and waits at most `timeoutMs` for
  // all of it to end. False when a thread still runs, because what it calls back does.
  [[nodiscard]] bool finish(int timeoutMs);

 private:
  struct Checks;
  std::shared_ptr<Checks> checks_;
};

}  // namespace cloudproxyd
