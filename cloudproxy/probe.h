// What the terminal's cloud proxy can do, found out once at start-up.
#pragma once

#include <string>

// The main menu's two entries, "1" or "0", of which at most one is offered.
struct ProxyProbe {
  std::string showSettings = "0";    // the log level page
  std::string showCloudproxy = "0";  // the cloud proxy menu
};

// Asks the proxy for its information and, only when that fails, for its log level: a proxy that answers the first gets
// the menu, one that answers the second alone the log level page, any other neither. Main thread; blocks up to two
// request time-outs of 5 seconds.
ProxyProbe proxyProbe();
