#include "cloudproxy/proxy_info.h"

#include <zoripc.h>

#include <exception>
#include <utility>

#include "cloudproxy/exchange.h"
#include "cloudproxy/proxy_message.h"

namespace {

using zoripc::JSObject;

// False when the proxy does not answer or leaves something out.
bool askProxyInfo(ProxyInfo& info) {
  JSObject message = proxyRequest("info");
  if (cloudProxyRequest(message, kProxyTimeoutSeconds) != 0) return false;
  const JSObject& proxy = std::as_const(message)["proxy"];
  if (!proxy["version"].isString() || !proxy["device_type"].isString() || !isNumeric(proxy["auth_ex_support"])) {
    return false;
  }
  info.version = proxy["version"].getString();
  info.device_type = proxy["device_type"].getString();
  info.auth_ex_support = proxy["auth_ex_support"].getInt() != 0 ? '1' : '0';
  return true;
}

}  // namespace

int readProxyInfo(ProxyInfo& info) {
  static bool known = false;
  try {
    static ProxyInfo cached;
    if (!known) known = askProxyInfo(cached);
    if (!known) return -1;
    info = ProxyInfo(cached);
    return 0;
  } catch (const std::exception&) {
    return -1;
  }
}
