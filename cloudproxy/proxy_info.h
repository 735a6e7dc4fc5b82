// What the cloud proxy tells about itself.
#pragma once

#include <string>

struct ProxyInfo {
  std::string version;
  std::string device_type;     // "prod" on production devices
  char auth_ex_support = '0';  // '1' or '0'
};

// Fills `info` and returns 0, or returns -1 and leaves it. The proxy is asked until it has answered once; from then on
// that answer holds for the life of the process. Main thread; blocks up to 5 seconds; does not throw.
[[nodiscard]] int readProxyInfo(ProxyInfo& info);
