// Where the cloud's gateway is.
#pragma once

#include <string>

namespace cloudproxyd {

struct Gateway {
  std::string host;  // a name or a numeric address, IPv6 without brackets
  int port = 443;
  std::string caFile;  // trusted authorities, PEM; empty: those of the system
};

// Takes host and port from "NAME", "IPV4" or "[IPV6]", each with ":PORT" or without, which leaves `gateway.port`. A
// name is that of a host: labels of 1 to 63 letters, digits and inner hyphens, parted by single dots, 253 bytes at
// most, the last of them no number. False when `text` is anything else; `gateway` is to be thrown away then.
bool parseGateway(const std::string& text, Gateway& gateway);

}  // namespace cloudproxyd
