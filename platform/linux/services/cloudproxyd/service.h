// What the cloud proxy does with a request.
#pragma once

#include <zoripc.h>

#include <functional>
#include <string>

#include "platform/linux/services/cloudproxyd/gateway_check.h"
#include "platform/linux/services/cloudproxyd/settings.h"

namespace cloudproxyd {

enum class ListFormat { kNew, kOld, kBoth };

struct ServiceOptions {
  bool answersInfo = true;
  std::string deviceType = "prod";
  ListFormat listFormat = ListFormat::kNew;
  Environments environments;
  std::string host;  // of the gateway, as the operator sees it
};

// Answers requests {"proxy": {"command": ...}}. One thread uses it.
class Service {
 public:
  // Sends a response; a response to a check is sent from another thread.
  using Reply = std::function<void(const zoripc::JSObject& response)>;
  // Begins a check of the gateway; false when it cannot.
  using StartCheck = std::function<bool(GatewayChecker::Done done)>;
  // Keeps settings across restarts. Throws Failure when it cannot.
  using Keep = std::function<void(const Settings& settings)>;
  // Takes a line for people.
  using Tell = std::function<void(const std::string& line)>;

  Service(ServiceOptions options, Settings settings, StartCheck startCheck, Keep keep, Tell tell);

  // Does what `message` says. Every request gets exactly one response, {"proxy": {"command", "result", ...}}, where
  // "result" is "success", or "error" with an "error_reason". What sets the log level is no request and gets none.
  void take(const zoripc::JSObject& message, const Reply& reply);

 private:
  [[nodiscard]] zoripc::JSObject info() const;
  [[nodiscard]] zoripc::JSObject readConfig() const;
  [[nodiscard]] zoripc::JSObject writeConfig(const zoripc::JSObject& request);
  void check(const Reply& reply);
  void setLogLevel(const zoripc::JSObject& level);
  void change(Settings settings);

  ServiceOptions options_;
  Settings settings_;
  StartCheck startCheck_;
  Keep keep_;
  Tell tell_;
};

}  // namespace cloudproxyd
