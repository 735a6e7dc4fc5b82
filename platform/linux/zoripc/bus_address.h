// Which bus carries the notifications.
#pragma once

#include <string>

namespace zoripc {

// The D-Bus address that the environment names: JXPLATFORM_BUS is "session", "system" or an address; without it the
// session bus where there is one, else the system bus. Empty when a session bus is asked for and there is none.
[[nodiscard]] std::string busAddress();

}  // namespace zoripc
