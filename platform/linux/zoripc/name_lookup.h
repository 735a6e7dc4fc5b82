// Looking a name up within a bounded time.
#pragma once

#include <string>

#include "base/deadline.h"
#include "platform/linux/zoripc/socket_address.h"

namespace zoripc {

// The addresses of `host`, a name or a numeric address, with `port`. Null when there is none, errno then being
// EHOSTUNREACH, or when the time is over, errno being ETIMEDOUT. A numeric address is never looked up. A look-up cannot
// be interrupted: one that takes too long ends by itself later, on a thread of its own.
AddressList lookUp(const std::string& host, unsigned short port, const base::Deadline& deadline);

}  // namespace zoripc
