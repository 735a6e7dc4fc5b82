// The names under which a browser may ask for the screen.
#pragma once

#include <optional>
#include <string>

namespace jxplatform {

// An address to serve at.
struct ServerAddress {
  std::string host;  // numeric, IPv6 without brackets, or "localhost"
  int port = 0;      // 0: any free one
};

// Reads "ADDRESS:PORT", an IPv6 address in brackets. None when it is anything else.
[[nodiscard]] std::optional<ServerAddress> parseServerAddress(const std::string& text);

// Tells requests for this server from those that another site's page sends through the operator's browser, be it under
// that site's name (which may point here for a while) or with its origin.
//
// Bound to a loopback address, the server answers to "localhost", "127.0.0.1", "[::1]" and the address itself.
// Otherwise it answers to "localhost" and every numeric address: the machine may have many, and no name server can
// point a numeric address elsewhere. Always with the server's port, which only 80 may leave out.
class OwnNames {
 public:
  // The address in use: its port is not 0.
  explicit OwnNames(ServerAddress address);

  [[nodiscard]] bool isOwnHost(const std::string& host) const;      // the value of a Host header
  [[nodiscard]] bool isOwnOrigin(const std::string& origin) const;  // the value of an Origin header

 private:
  ServerAddress address_;
  bool loopback_;
};

}  // namespace jxplatform
