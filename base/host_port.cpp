#include "base/host_port.h"

#include <arpa/inet.h>

namespace base {
namespace {

constexpr std::size_t kMaxPortDigits = 5;
constexpr int kMaxPort = 65535;

// inet_pton() would end at a zero byte, and take what stands before it.
bool isAddress(int family, const std::string& host) {
  in6_addr address{};
  return host.find('\0') == std::string::npos && inet_pton(family, host.c_str(), &address) == 1;
}

}  // namespace

std::optional<int> parsePort(const std::string& text) {
  const bool digits = text.find_first_not_of("0123456789") == std::string::npos;
  if (text.empty() || text.size() > kMaxPortDigits || !digits) return std::nullopt;
  const int port = std::stoi(text);
  if (port > kMaxPort) return std::nullopt;
  return port;
}

std::optional<HostPort> splitHostPort(const std::string& text) {
  HostPort result;
  result.bracketed = !text.empty() && text[0] == '[';
  const std::size_t end = text.find(result.bracketed ? ']' : ':');
  if (result.bracketed && end == std::string::npos) return std::nullopt;
  result.host = result.bracketed ? text.substr(1, end - 1) : text.substr(0, end);
  const std::size_t used = result.host.size() + (result.bracketed ? 2 : 0);
  if (used == text.size()) return result;
  if (text[used] != ':') return std::nullopt;
  result.port = parsePort(text.substr(used + 1));
  if (!result.port) return std::nullopt;
  return result;
}

std::string hostAndPort(const std::string& host, int port) {
  const std::string shown = host.find(':') == std::string::npos ? host : "[" + host + "]";
  return shown + ":" + std::to_string(port);
}

bool isIpv4(const std::string& host) { return isAddress(AF_INET, host); }

bool isIpv6(const std::string& host) { return isAddress(AF_INET6, host); }

}  // namespace base
