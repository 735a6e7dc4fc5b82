#include "platform/linux/services/cloudproxyd/gateway.h"

#include <arpa/inet.h>

#include <algorithm>

namespace cloudproxyd {

namespace {

constexpr std::size_t kMaxNameBytes = 253;
constexpr std::size_t kMaxLabelBytes = 63;
constexpr std::size_t kMaxPortDigits = 5;
constexpr int kMaxPort = 65535;
constexpr const char* kDigits = "0123456789";
constexpr const char* kHexDigits = "0123456789ABCDEFabcdef";
constexpr const char* kLabelCharacters = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz-";

bool hasOnly(const std::string& text, const char* characters) {
  return text.find_first_not_of(characters) == std::string::npos;
}

bool isAddress(int family, const std::string& host) {
  in6_addr address{};
  return inet_pton(family, host.c_str(), &address) == 1;
}

bool isLabel(const std::string& label) {
  return !label.empty() && label.size() <= kMaxLabelBytes && label.front() != '-' && label.back() != '-' &&
         hasOnly(label, kLabelCharacters);
}

// A name that ends so would be taken by the resolver for an address in one of its other spellings: 127.1, 0x7f.1.
bool isNumber(const std::string& label) {
  const bool isHex = label.rfind("0x", 0) == 0 || label.rfind("0X", 0) == 0;
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

bool parsePort(const std::string& text, int& port) {
  if (text.empty() || text.size() > kMaxPortDigits || !hasOnly(text, kDigits)) return false;
  port = std::stoi(text);
  return port >= 1 && port <= kMaxPort;
}

}  // namespace

bool parseGateway(const std::string& text, Gateway& gateway) {
  const bool isBracketed = text.rfind('[', 0) == 0;
  const std::size_t end = std::min(text.find(isBracketed ? ']' : ':'), text.size());
  gateway.host = isBracketed ? text.substr(1, end - 1) : text.substr(0, end);
  const std::string rest = text.substr(std::min(isBracketed ? end + 1 : end, text.size()));
  const bool isHost = isBracketed ? end < text.size() && isAddress(AF_INET6, gateway.host)
                                  : isAddress(AF_INET, gateway.host) || isHostName(gateway.host);
  return isHost && (rest.empty() || (rest[0] == ':' && parsePort(rest.substr(1), gateway.port)));
}

}  // namespace cloudproxyd
