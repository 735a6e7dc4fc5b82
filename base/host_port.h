// A host with a port, as URLs and options write it.
#pragma once

#include <optional>
#include <string>

namespace base {

struct HostPort {
  std::string host;         // without brackets
  bool bracketed = false;   // stood in brackets, as an IPv6 address does
  std::optional<int> port;  // 0 to 65535; none where the text has none
};

// Reads a port: one to five decimal digits, at most 65535; none where `text` is anything else.
[[nodiscard]] std::optional<int> parsePort(const std::string& text);

// Splits "HOST", "HOST:PORT", "[HOST]" or "[HOST]:PORT"; none where a bracket is not closed, where something else
// follows the host, or where the port is none. What the host is, nobody looks at; without brackets it ends at the first
// colon.
[[nodiscard]] std::optional<HostPort> splitHostPort(const std::string& text);

// "HOST:PORT", with brackets around a host that has a colon.
[[nodiscard]] std::string hostAndPort(const std::string& host, int port);

[[nodiscard]] bool isIpv4(const std::string& host);  // four decimal numbers with dots
[[nodiscard]] bool isIpv6(const std::string& host);  // without brackets and zone

}  // namespace base
