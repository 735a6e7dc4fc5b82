// The cloud proxy's environment and certificate settings, in the form that the settings page takes.
#pragma once

#include <string>

struct ProxySettings {
  std::string cloud_env_list;  // JSON: [{"name": ..., "prod": ..., "certs": [...]}, ...]
  std::string cloud_env;
  char auth_ex_support = '0';  // '1' when the proxy's configuration has an authentication mode at all
  std::string cert;            // "auth-ex", "jx-basic", another name from the list, or empty
  std::string cloud_hostname;
};

// Asks the proxy for its configuration, whichever of the two list formats it uses; for the old one also for its
// information. Fills `settings` and returns 0, or returns non-zero and leaves it. Main thread; blocks up to 5 seconds,
// 10 with the old format; does not throw.
[[nodiscard]] int readProxySettings(ProxySettings& settings);
