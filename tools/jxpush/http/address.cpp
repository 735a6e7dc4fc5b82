#include "tools/jxpush/http/address.h"

#include <algorithm>

#include "base/host_port.h"
#include "base/text.h"

#include "tools/jxpush/common/problem.h"

namespace jxpush {

namespace {

constexpr unsigned short kDefaultPort = 6370;
constexpr std::size_t kLongestHost = 253;

[[noreturn]] void refuse(const std::string& target, const std::string& reason) {
  throw Problem(ExitCode::kUsage, target + ": " + reason);
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isNameCharacter(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '-' || c == '_';
}

unsigned short readPort(const std::string& text, const std::string& target) {
  const int port = base::parsePort(text).value_or(0);
  if (port == 0) refuse(target, "the port is a number from 1 to 65535");
  return static_cast<unsigned short>(port);
}

// What stood in brackets. Takes a zone such as "%eth0" along, which the way to the terminal may need and the terminal
// must not see.
void readBracketed(const std::string& text, const std::string& target, HttpAddress& address) {
  const std::size_t percent = text.find('%');
  const std::string numeric = text.substr(0, percent);
  if (!base::isIpv6(numeric)) refuse(target, "what is in brackets is no IPv6 address");
  address.host = numeric;
  address.hostField = base::hostAndPort(numeric, address.port);
  if (percent == std::string::npos) return;
  // In a URL the percent sign itself is written "%25".
  std::string zone = text.substr(percent + 1);
  if (base::beginsWith(zone, "25") && zone.size() > 2) zone.erase(0, 2);
  if (zone.empty() || !std::all_of(zone.begin(), zone.end(), isNameCharacter)) refuse(target, "the zone is malformed");
  address.host += "%" + zone;
}

void readName(const std::string& text, const std::string& target, HttpAddress& address) {
  if (text.empty()) refuse(target, "the host is missing");
  if (text.size() > kLongestHost || !std::all_of(text.begin(), text.end(), isNameCharacter)) {
    refuse(target, "the host is malformed");
  }
  address.host = text;
  address.hostField = base::hostAndPort(text, address.port);
}

// Splits the port off; its text is empty, without the colon, where none is given.
std::string cutPort(std::string& authority, const std::string& target) {
  const std::size_t bracket = authority.rfind(']');
  const std::size_t colon = authority.find(':', bracket == std::string::npos ? 0 : bracket);
  if (colon == std::string::npos) return "";
  if (authority.find(':', colon + 1) != std::string::npos) refuse(target, "an IPv6 address stands in brackets");
  std::string port = authority.substr(colon + 1);
  if (port.empty()) refuse(target, "the port is missing");
  authority.erase(colon);
  return port;
}

}  // namespace

bool isHttpTarget(const std::string& target) {
  const std::string lower = base::lowerCase(target);
  return base::beginsWith(lower, "http:") || base::beginsWith(lower, "https:");
}

HttpAddress parseHttpAddress(const std::string& target) {
  const std::string scheme = "http://";
  const std::string lower = base::lowerCase(target);
  if (base::beginsWith(lower, "https:")) refuse(target, "a terminal does not speak https");
  if (!base::beginsWith(lower, scheme)) refuse(target, "expected http://HOST[:PORT]");
  std::string authority = target.substr(scheme.size());
  if (!authority.empty() && authority.back() == '/') authority.pop_back();
  if (authority.find_first_of("/?#") != std::string::npos)
    refuse(target, "a path is not wanted, only http://HOST[:PORT]");
  if (authority.find('@') != std::string::npos) refuse(target, "a terminal asks for no user");

  HttpAddress address;
  const std::string port = cutPort(authority, target);
  address.port = port.empty() ? kDefaultPort : readPort(port, target);
  const bool bracketed = authority.size() > 1 && authority.front() == '[' && authority.back() == ']';
  if (bracketed) {
    readBracketed(authority.substr(1, authority.size() - 2), target, address);
  } else {
    readName(authority, target, address);
  }
  return address;
}

}  // namespace jxpush
