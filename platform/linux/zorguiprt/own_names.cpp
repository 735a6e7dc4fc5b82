#include "platform/linux/zorguiprt/own_names.h"

#include <arpa/inet.h>

#include <optional>
#include <utility>

namespace jxplatform {
namespace {

constexpr int kHttpPort = 80;
constexpr int kLargestPort = 65535;

std::string lowerCase(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

bool isIpv4(const std::string& host) {
  in_addr address{};
  return host.find('\0') == std::string::npos && inet_pton(AF_INET, host.c_str(), &address) == 1;
}

bool isIpv6(const std::string& host) {
  in6_addr address{};
  return host.find('\0') == std::string::npos && inet_pton(AF_INET6, host.c_str(), &address) == 1;
}

bool isLoopback(const std::string& host) {
  return host == "localhost" || host == "::1" || (isIpv4(host) && host.compare(0, 4, "127.") == 0);
}

std::optional<int> parsePort(const std::string& text) {
  if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  const int port = std::stoi(text);
  return port <= kLargestPort ? std::optional<int>(port) : std::nullopt;
}

// A host as it stands in a URL, with a port or without (-1).
struct HostPort {
  std::string host;  // without brackets
  bool bracketed = false;
  int port = -1;
};

std::optional<HostPort> splitHost(const std::string& text) {
  HostPort result;
  std::string rest;
  if (!text.empty() && text[0] == '[') {
    const std::size_t end = text.find(']');
    if (end == std::string::npos) return std::nullopt;
    result.host = text.substr(1, end - 1);
    result.bracketed = true;
    rest = text.substr(end + 1);
  } else {
    result.host = text.substr(0, text.find(':'));
    rest = text.substr(result.host.size());
  }
  if (rest.empty()) return result;
  const auto port = parsePort(rest.substr(1));
  if (rest[0] != ':' || !port) return std::nullopt;
  result.port = *port;
  return result;
}

}  // namespace

bool parseServerAddress(const std::string& text, ServerAddress& address) {
  const auto split = splitHost(text);
  if (!split || split->port < 0) return false;
  const bool good = split->bracketed ? isIpv6(split->host) : isIpv4(split->host) || split->host == "localhost";
  if (good) address = {split->host, split->port};
  return good;
}

std::string hostAndPort(const std::string& host, int port) {
  const std::string shown = host.find(':') == std::string::npos ? host : "[" + host + "]";
  return shown + ":" + std::to_string(port);
}

OwnNames::OwnNames(ServerAddress address) : address_(std::move(address)), loopback_(isLoopback(address_.host)) {}

bool OwnNames::isOwnHost(const std::string& host) const {
  const auto split = splitHost(lowerCase(host));
  if (!split || (split->port < 0 ? kHttpPort : split->port) != address_.port) return false;
  const std::string& name = split->host;
  if (split->bracketed) return isIpv6(name) && (!loopback_ || name == "::1" || name == lowerCase(address_.host));
  if (name == "localhost") return true;
  return isIpv4(name) && (!loopback_ || name == "127.0.0.1" || name == address_.host);
}

bool OwnNames::isOwnOrigin(const std::string& origin) const {
  const std::string scheme = "http://";
  return origin.compare(0, scheme.size(), scheme) == 0 && isOwnHost(origin.substr(scheme.size()));
}

}  // namespace jxplatform
