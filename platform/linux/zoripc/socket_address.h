// Socket addresses as text, and text as socket addresses.
#pragma once

#include <netdb.h>

#include <memory>
#include <string>

namespace zoripc {

struct FreeAddresses {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, FreeAddresses>;

// The addresses of `host` with `port`; null when there is none. `flags` as for getaddrinfo: with AI_NUMERICHOST it
// neither looks up nor blocks.
AddressList resolve(const std::string& host, unsigned short port, int flags);

// "ADDRESS:PORT" of the socket's local end, IPv6 addresses in brackets, IPv4 ones plain even on an IPv6 socket; empty
// when there is none.
std::string localAddressOf(int fd);

}  // namespace zoripc
