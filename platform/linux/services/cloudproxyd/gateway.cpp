#include "platform/linux/services/cloudproxyd/gateway.h"

#include "base/host_port.h"
#include "base/text.h"

namespace cloudproxyd {

namespace {

constexpr std::size_t kMaxNameBytes = 253;
constexpr std::size_t kMaxLabelBytes = 63;
constexpr const char* kDigits = "0123456789";
constexpr const char* kHexDigits = "0123456789ABCDEFabcdef";
constexpr const char* kLabelCharacters = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz-";

bool hasOnly(const std::string& text, const char* characters) {
  return text.find_first_not_of(characters) == std::string::npos;
}

bool isLabel(const std::string& label) {
  return !label.empty() && label.size() <= kMaxLabelBytes && label.front() != '-' && label.back() != '-' &&
         hasOnly(label, kLabelCharacters);
}

// A name that ends so would be taken by the resolver for an address in one of its other spellings: 127.1, 0x7f.1.
bool isNumber(const std::string& label) {
  const bool isHex = base::beginsWith(base::lowerCase(label), "0x");
  return isHex ? hasOnly(label.substr(2), kHexDigits) : hasOnly(label, kDigits);
}

bool isHostName(const std::string& host) {
  if (host.size() > kMaxNameBytes) return false;
  std::size_t start = 0;
  for (std::size_t dot = host.find('.'); dot != std::string::npos; dot = host.find('.', start)) {
    if (!isLabel(host.substr(start, dot - start))) return false;
    start = dot + 1;
  }
  const std::string last = host.substr(start);
  return isLabel(last) && !isNumber(last);
}

}  // namespace

std::optional<Gateway> parseGateway(const std::string& text) {
  const std::optional<base::HostPort> parts = base::splitHostPort(text);
  if (!parts || parts->port == 0) return std::nullopt;
  const bool isHost =
      parts->bracketed ? base::isIpv6(parts->host) : base::isIpv4(parts->host) || isHostName(parts->host);
  if (!isHost) return std::nullopt;
  Gateway gateway;
  gateway.host = parts->host;
  gateway.port = parts->port.value_or(gateway.port);
  return gateway;
}

}  // namespace cloudproxyd
