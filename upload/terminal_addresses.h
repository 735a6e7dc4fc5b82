// The addresses under which other machines reach the terminal.
#pragma once

#include <string>
#include <utility>
#include <vector>

// Pairs of interface name and numeric address.
using AddressList = std::vector<std::pair<std::string, std::string>>;

// Fills `addresses` with the IPv4 and IPv6 addresses of the running interfaces, in the system's order, but for
// 127.0.0.1, ::1 and link-local IPv6, and without zones. Empty when there is none or they cannot be asked for.
void findTerminalAddresses(AddressList& addresses);
