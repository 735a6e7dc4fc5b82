// The address of a terminal's upload server.
#pragma once

#include <string>

namespace jxpush {

struct HttpAddress {
  std::string host;  // a name or numeric address, IPv6 without brackets, as zoripc::TCP::connect() takes it
  unsigned short port = 0;
  std::string hostField;  // as the request's "Host" field names it

  // "http://HOST:PORT", for messages.
  [[nodiscard]] std::string text() const { return "http://" + hostField; }
};

// True when `target` begins with "http:" or "https:", in any letter case.
[[nodiscard]] bool isHttpTarget(const std::string& target);

// Reads "http://HOST[:PORT][/]"; the port is 6370 where none is given, an IPv6 address stands in brackets. Throws
// Problem(kUsage).
[[nodiscard]] HttpAddress parseHttpAddress(const std::string& target);

}  // namespace jxpush
