#include "cloudproxy/cloud_proxy_menu.h"

#include <zorguiprt.h>
#include <zorhtml.h>
#include <zoripc.h>

#include <ctime>
#include <string>
#include <utility>

#include "cloudproxy/exchange.h"
#include "cloudproxy/proxy_info.h"
#include "cloudproxy/proxy_message.h"
#include "cloudproxy/proxy_settings.h"
#include "shell/activity.h"
#include "shell/pages.h"

namespace {

using zorhtml::TimeStamp;
using zoripc::JSObject;

constexpr int kCheckTimeoutSeconds = 10;
constexpr int kShortestWaitSeconds = 2;
constexpr long kClockCheckNs = 100000000;

// What a cloud check ended with: an HTTP status or an error number of the proxy, or one of these.
constexpr int kNoProxy = -1;
constexpr int kNoGateway = -2;

constexpr const char* kCannotReadInformation = "Cannot read information.<br>Cloudproxy not running?";
constexpr const char* kCannotReadSettings = "Cannot read settings.<br>Cloudproxy not running?";
constexpr const char* kCannotWriteSettings = "Cannot write settings.<br>Cloudproxy not running?";
constexpr const char* kNoResponse = "No response.<br>Cloudproxy not running?";
constexpr const char* kNoCloudResponse = "No cloud response (timeout)";

void runInformation(PageVars& vars) {
  ProxyInfo info;
  if (readProxyInfo(info) != 0) return showError(vars, kCannotReadInformation);
  vars["version"] = info.version;
  vars["auth_ex_support"] = std::string(1, info.auth_ex_support);
  vars["device_type"] = info.device_type;
  showPage(vars, "prx-info.html");
}

// `withAuthMode`: a proxy without authentication modes is told none.
int writeSettings(const std::string& environment, const std::string& cert, bool withAuthMode) {
  JSObject message = proxyRequest("writeconfig");
  message["proxy"]["cloud_env"] = environment;
  if (withAuthMode) message["proxy"]["auth_ex"] = cert == "auth-ex" ? 1 : 0;
  return cloudProxyRequest(message, kProxyTimeoutSeconds);
}

void runSettings(PageVars& vars) {
  ProxySettings settings;
  if (readProxySettings(settings) != 0) return showError(vars, kCannotReadSettings);
  vars["cloud_env"] = settings.cloud_env;
  vars["cloud_env_list"] = settings.cloud_env_list;
  vars["auth_ex_support"] = std::string(1, settings.auth_ex_support);
  vars["cert"] = settings.cert;
  if (showPage(vars, "prx-settings.html") != 0) return;
  settings.cloud_env = vars["cloud_env"];
  settings.cert = vars["cert"];
  if (writeSettings(settings.cloud_env, settings.cert, settings.auth_ex_support == '1') == 0) return;
  vars.clear();
  showError(vars, kCannotWriteSettings);
}

// Returns the code; `reason` becomes its text where there is one. What the proxy says of the result does not count: a
// failed check has its code as well.
int checkCloud(std::string& reason) {
  JSObject message = proxyRequest("cloudcheck");
  if (cloudProxyRequest(message, kCheckTimeoutSeconds) == kRequestNotSent) return kNoProxy;
  const JSObject& proxy = std::as_const(message)["proxy"];
  if (!isNumeric(proxy["error_code"])) return kNoGateway;
  reason = proxy["error_reason"].isString() ? proxy["error_reason"].getString() : "unknown";
  return proxy["error_code"].getInt();
}

void waitUntil(const TimeStamp& deadline) {
  constexpr timespec kPause{0, kClockCheckNs};
  while (TimeStamp::Monotonic() < deadline) nanosleep(&kPause, nullptr);
}

std::string describeStatus(const std::string& host, int code, const std::string& reason) {
  const bool isReachable = code >= 200 && code <= 299;
  const std::string head = isReachable ? successHead("Cloud reachable") : failureHead("Cloud not reachable");
  return head + zorgui::uiPrint(
                    "<b>Gateway:</b><div class='text_nowrap_tick'>%s</div>"
                    "<b>Status</b>:<div class='text_nowrap_tick'>%d (%s)</div>",
                    host.c_str(), code, reason.c_str());
}

void runCheck(PageVars& vars) {
  ProxySettings settings;
  if (readProxySettings(settings) != 0) return showError(vars, kCannotReadSettings);
  vars["text"] = "Connect to gateway:<div class='text_nowrap_tick'>" + settings.cloud_hostname + "</div>";
  showPageAsync(vars, "wait.html");
  // So long the waiting page stays for the operator to read, unless there is no status to show after it.
  const TimeStamp deadline = TimeStamp::Monotonic() + TimeStamp(kShortestWaitSeconds, 0);
  vars.clear();
  std::string reason;
  const int code = checkCloud(reason);
  if (code == kNoProxy) return showError(vars, kNoResponse);
  if (code < 0) return showError(vars, kNoCloudResponse);
  waitUntil(deadline);
  showResult(vars, describeStatus(settings.cloud_hostname, code, reason));
}

// Shows the menu once and runs what is chosen; false when the operator leaves.
bool runMenuOnce() {
  PageVars vars;
  switch (showPage(vars, "cloudproxy.html")) {
    case kPageLeft:
      return false;
    case 1:
      runActivity([&vars] { runInformation(vars); });
      return true;
    case 2:
      runActivity([&vars] { runSettings(vars); });
      return true;
    case 3:
      runActivity([&vars] { runCheck(vars); });
      return true;
    default:
      return true;
  }
}

}  // namespace

void runCloudProxyMenu() {
  while (runMenuOnce()) {
  }
}
