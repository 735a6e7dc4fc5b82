#include "cloudproxy/probe.h"

#include "cloudproxy/log_level.h"
#include "cloudproxy/proxy_info.h"

ProxyProbe proxyProbe() {
  ProxyProbe probe;
  ProxyInfo info;
  if (readProxyInfo(info) == 0) {
    probe.showCloudproxy = "1";
  } else if (readLogLevel() >= 0) {
    probe.showSettings = "1";
  }
  return probe;
}
