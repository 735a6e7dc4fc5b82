// The cloud proxy's log level, for proxies that have no more than that to set.
#pragma once

// The level, 0 or more; negative when the proxy does not tell one. Main thread; blocks up to 5 seconds; does not throw.
[[nodiscard]] int readLogLevel();

// Shows the log level page and tells the proxy a level that was changed; nothing is reported when that cannot be sent,
// or is not taken. Main thread; blocks until the operator has left. Throws where there is no memory for a page.
void runLogLevelPage();
