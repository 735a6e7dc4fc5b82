// The parts of a URL, as a client request needs them.
#pragma once

#include <cstdint>
#include <string>

namespace zorhtml {

// Splits `url`. Without "://" the scheme is "http"; `port` is 0 where none is given; `path` includes the query and is
// never empty. The first ":" of the host begins the port, so an IPv6 literal is not understood.
void parseUrl(const std::string& url, std::string& scheme, std::string& host, std::uint16_t& port, std::string& path);

}  // namespace zorhtml
