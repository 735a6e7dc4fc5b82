// Where the cloud's gateway is.
#pragma once

#include <optional>
#include <string>

namespace cloudproxyd {

struct Gateway {
  std::string host;  // a name or a numeric address, IPv6 without brackets
  int port = 443;
  std::string caFile;  // trusted authorities, PEM; empty: those of the system
};

// Reads "NAME", "IPV4" or "[IPV6]", each with ":PORT" or without. A name is that of a host: labels of 1 to 63 letters,
// digits and inner hyphens, parted by single dots, 253 bytes at most, the last of them no number. None when `text` is
// anything else.
[[nodiscard]] std::optional<Gateway> parseGateway(const std::string& text);

}  // namespace cloudproxyd
