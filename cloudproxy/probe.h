// What the terminal's cloud proxy can do, found out once at start-up.
#pragma once

#include "shell/menu.h"

// Asks the proxy for its information and, only when that fails, for its log level: a proxy that answers the first gets
// the cloud proxy menu, one that answers the second alone the log level page, any other no entry. Main thread; blocks
// up to two request time-outs of 5 seconds; does not throw.
[[nodiscard]] ProxyEntry proxyProbe();
