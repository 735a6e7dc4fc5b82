#include "platform/linux/zorguiprt/own_names.h"

#include <utility>

#include "base/host_port.h"
#include "base/text.h"

namespace jxplatform {
namespace {

constexpr int kHttpPort = 80;

bool isLoopback(const std::string& host) {
  return host == "localhost" || host == "::1" || (base::isIpv4(host) && base::beginsWith(host, "127."));
}

}  // namespace

std::optional<ServerAddress> parseServerAddress(const std::string& text) {
  const auto split = base::splitHostPort(text);
  if (!split || !split->port) return std::nullopt;
  const bool good =
      split->bracketed ? base::isIpv6(split->host) : base::isIpv4(split->host) || split->host == "localhost";
  if (!good) return std::nullopt;
  return ServerAddress{split->host, *split->port};
}

OwnNames::OwnNames(ServerAddress address) : address_(std::move(address)), loopback_(isLoopback(address_.host)) {}

bool OwnNames::isOwnHost(const std::string& host) const {
  const auto split = base::splitHostPort(base::lowerCase(host));
  if (!split || split->port.value_or(kHttpPort) != address_.port) return false;
  const std::string& name = split->host;
  if (split->bracketed)
    return base::isIpv6(name) && (!loopback_ || name == "::1" || name == base::lowerCase(address_.host));
  if (name == "localhost") return true;
  return base::isIpv4(name) && (!loopback_ || name == "127.0.0.1" || name == address_.host);
}

bool OwnNames::isOwnOrigin(const std::string& origin) const {
  const std::string scheme = "http://";
  return base::beginsWith(origin, scheme) && isOwnHost(origin.substr(scheme.size()));
}

}  // namespace jxplatform
