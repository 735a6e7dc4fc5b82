#include "cloudproxy/log_level.h"

#include <zoripc.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <string>
#include <utility>

#include "base/ignore.h"
#include "cloudproxy/exchange.h"
#include "cloudproxy/proxy_message.h"
#include "shell/pages.h"

namespace {

using zoripc::JSObject;

int askLogLevel() {
  JSObject message = proxyRequest("readconfig");
  if (cloudProxyRequest(message, kProxyTimeoutSeconds) != 0) return -1;
  const JSObject& level = std::as_const(message)["proxy"]["loglevel"];
  return isNumeric(level) ? level.getInt() : -1;
}

// One digit, deliberately, because the page has no more: 12 is shown as 3.
std::string shownDigit(int level) {
  std::array<char, 2> text{};
  std::snprintf(text.data(), text.size(), "%d", level % 9);
  return text.data();
}

int toLevel(const std::string& text) {
  const long value = std::strtol(text.c_str(), nullptr, 10);
  const long least = std::numeric_limits<int>::min();
  const long most = std::numeric_limits<int>::max();
  return static_cast<int>(std::min(std::max(value, least), most));
}

void sendLogLevel(int level) {
  try {
    JSObject message = JSObject::object();
    message["proxy"]["loglevel"] = level;
    base::ignore(zoripc::ipcNotify(kCloudProxyId, kCloudProxyNotification, message, 0, ""));
  } catch (const std::exception&) {
    return;  // a level that cannot be sent is as good as one that is not taken, which nobody reports either
  }
}

}  // namespace

int readLogLevel() {
  try {
    return askLogLevel();
  } catch (const std::exception&) {
    return -1;
  }
}

void runLogLevelPage() {
  PageVars vars;
  const int level = readLogLevel();
  if (level < 0) {
    showError(vars, "Cannot read loglevel.<br>Cloudproxy not running?");
    return;
  }
  vars["loglevel"] = shownDigit(level);
  if (showPage(vars, "settings.html") != 0) return;
  const std::string chosen = vars["loglevel"];
  // Compared with the level itself, deliberately: a digit shown for a higher level is sent when it is accepted.
  if (!chosen.empty() && toLevel(chosen) != level) sendLogLevel(toLevel(chosen));
}
