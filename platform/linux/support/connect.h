// Connecting to a host within a bounded time, in a way that another thread can break off.
#pragma once

#include <netdb.h>

#include <memory>
#include <string>

#include "base/deadline.h"
#include "base/descriptor.h"

namespace jxplatform {

struct FreeAddresses {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, FreeAddresses>;

// Waits until `fd` is ready for one of `events` (as for poll()) or has failed. 0 then; ETIMEDOUT when `deadline` has
// come before, ECANCELED when `breakFd` has become readable (-1: none), else the error of the waiting itself.
[[nodiscard]] int waitReady(int fd, short events, const base::Deadline& deadline, int breakFd = -1);

// The addresses of `host` with `port`; null when there is none. `flags` as for getaddrinfo: with AI_NUMERICHOST it
// neither looks up nor blocks.
[[nodiscard]] AddressList resolve(const std::string& host, unsigned short port, int flags);

// A connected stream socket to `host`, a name or a numeric address (IPv6 without brackets), that does not block, or
// none with the reason in errno: that of the last of its addresses, of which each gets an equal share of the time that
// is left; EHOSTUNREACH when the name has none, ETIMEDOUT when `deadline` has come, ECANCELED when `breakFd` has become
// readable (-1: none). A numeric address is never looked up. Looking a name up cannot be broken off: one that takes too
// long ends by itself later, on a thread of its own. Any thread; blocks; throws nothing but for want of memory.
[[nodiscard]] base::Descriptor connectTo(const std::string& host, unsigned short port, const base::Deadline& deadline,
                                         int breakFd = -1);

}  // namespace jxplatform
