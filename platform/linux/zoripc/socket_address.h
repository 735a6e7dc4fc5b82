// Socket addresses as text.
#pragma once

#include <string>

namespace zoripc {

// "ADDRESS:PORT" of the socket's local end, IPv6 addresses in brackets, IPv4 ones plain even on an IPv6 socket; empty
// when there is none.
[[nodiscard]] std::string localAddressOf(int fd);

}  // namespace zoripc
