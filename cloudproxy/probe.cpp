#include "cloudproxy/probe.h"

#include "cloudproxy/log_level.h"
#include "cloudproxy/proxy_info.h"

ProxyEntry proxyProbe() {
  ProxyInfo info;
  if (readProxyInfo(info) == 0) return ProxyEntry::kCloudProxy;
  return readLogLevel() >= 0 ? ProxyEntry::kLogLevel : ProxyEntry::kNone;
}
