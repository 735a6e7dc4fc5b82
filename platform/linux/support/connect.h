// Connecting to a host within a bounded time.
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

// The addresses of `host` with `port`; null when there is none. `flags` as for getaddrinfo: with AI_NUMERICHOST it
// neither looks up nor blocks.
[[nodiscard]] AddressList resolve(const std::string& host, unsigned short port, int flags);

// A connected stream socket to `host`, a name or a numeric address (IPv6 without brackets), that does not block, or
// none with the reason in errno: that of the last of its addresses, of which each gets an equal share of the time that
// is left; EHOSTUNREACH when the name has none, ETIMEDOUT when `deadline` has come. A numeric address is never looked
// up. Looking a name up cannot be interrupted: one that takes too long ends by itself later, on a thread of its own.
// Any thread; blocks; throws nothing but for want of memory.
[[nodiscard]] base::Descriptor connectTo(const std::string& host, unsigned short port, const base::Deadline& deadline);

}  // namespace jxplatform
