#include "cloudproxy/proxy_settings.h"

#include <zoripc.h>

#include <cstddef>
#include <exception>
#include <utility>

#include "base/ignore.h"
#include "cloudproxy/exchange.h"
#include "cloudproxy/proxy_info.h"
#include "cloudproxy/proxy_message.h"

namespace {

using zoripc::JSObject;

constexpr const char* kAuthEx = "auth-ex";
constexpr const char* kBasic = "jx-basic";
constexpr const char* kProduction = "prod";

enum class AuthMode { kUnsupported, kOff, kOn };

// False when the mode is there but not numeric.
bool readAuthMode(const JSObject& proxy, AuthMode& mode) {
  mode = AuthMode::kUnsupported;
  if (!proxy.has("auth_ex")) return true;
  if (!isNumeric(proxy["auth_ex"])) return false;
  mode = proxy["auth_ex"].getInt() != 0 ? AuthMode::kOn : AuthMode::kOff;
  return true;
}

// A production device gets "auth-ex" for the production environment alone, a test device for the others alone,
// deliberately.
JSObject certificatesOf(const std::string& environment, AuthMode mode, const std::string& deviceType) {
  JSObject certificates = JSObject::array();
  const bool isProduction = environment == kProduction;
  if (mode != AuthMode::kUnsupported && isProduction == (deviceType == kProduction)) certificates.append(kAuthEx);
  if (!isProduction) certificates.append(kBasic);
  return certificates;
}

// The old format has the names alone; what the page expects with them follows from the device's type.
void useOldList(const JSObject& names, AuthMode mode, ProxySettings& settings) {
  ProxyInfo info;
  base::ignore(readProxyInfo(info));  // a proxy that does not tell its type counts as a test device
  JSObject list = JSObject::array();
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (!names.at(i).isString()) continue;
    const std::string name = names.at(i).getString();
    JSObject environment = JSObject::object();
    environment["name"] = name;
    environment["prod"] = name == kProduction;
    environment["certs"] = certificatesOf(name, mode, info.device_type);
    list.append(environment);
  }
  settings.cloud_env_list = list.dump();
  if (mode == AuthMode::kOn) {
    settings.cert = kAuthEx;
  } else if (settings.cloud_env != kProduction) {
    settings.cert = kBasic;
  }
}

// Leaves `cert` when no certificate of the list fits the mode.
void chooseCertificate(const JSObject& certificates, AuthMode mode, std::string& cert) {
  for (std::size_t i = 0; i < certificates.size(); ++i) {
    if (!certificates.at(i).isString()) continue;
    const std::string name = certificates.at(i).getString();
    if ((name == kAuthEx) != (mode == AuthMode::kOn)) continue;
    cert = name;
    return;
  }
}

void useNewList(const JSObject& environments, AuthMode mode, ProxySettings& settings) {
  settings.cloud_env_list = environments.dump();
  for (std::size_t i = 0; i < environments.size(); ++i) {
    const JSObject& environment = environments.at(i);
    const JSObject& name = environment["name"];
    if (!name.isString() || name.getString() != settings.cloud_env || !environment["certs"].isArray()) continue;
    chooseCertificate(environment["certs"], mode, settings.cert);
  }
}

// False when `proxy`, the configuration, lacks something or has it in another type.
bool fillSettings(const JSObject& proxy, ProxySettings& settings) {
  const bool isNew = proxy["cloud_env_list2"].isArray();
  AuthMode mode = AuthMode::kUnsupported;
  if (!proxy["cloud_env"].isString() || !(isNew || proxy["cloud_env_list"].isArray()) ||
      !proxy["cloud_hostname"].isString() || !readAuthMode(proxy, mode)) {
    return false;
  }
  settings.cloud_env = proxy["cloud_env"].getString();
  settings.cloud_hostname = proxy["cloud_hostname"].getString();
  settings.auth_ex_support = mode == AuthMode::kUnsupported ? '0' : '1';
  if (isNew) {
    useNewList(proxy["cloud_env_list2"], mode, settings);
  } else {
    useOldList(proxy["cloud_env_list"], mode, settings);
  }
  return true;
}

}  // namespace

int readProxySettings(ProxySettings& settings) {
  try {
    JSObject message = proxyRequest("readconfig");
    if (const int result = cloudProxyRequest(message, kProxyTimeoutSeconds); result != 0) return result;
    ProxySettings read;
    if (!fillSettings(std::as_const(message)["proxy"], read)) return -1;
    settings = std::move(read);
    return 0;
  } catch (const std::exception&) {
    return -1;
  }
}
