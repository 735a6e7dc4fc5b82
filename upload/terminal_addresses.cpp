#include "upload/terminal_addresses.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <memory>

#include "base/text.h"

namespace {

struct FreeInterfaces {
  void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

// Empty for what is no IPv4 or IPv6 address.
std::string numericText(const sockaddr* address) {
  if (address == nullptr) return "";
  if (address->sa_family != AF_INET && address->sa_family != AF_INET6) return "";
  const socklen_t length = address->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  std::array<char, 1025> host{};
  if (getnameinfo(address, length, host.data(), host.size(), nullptr, 0, NI_NUMERICHOST) != 0) return "";
  return host.data();
}

bool isReachable(const ifaddrs& entry, const std::string& text) {
  if (text.empty() || (entry.ifa_flags & IFF_RUNNING) == 0) return false;
  return text != "127.0.0.1" && text != "::1" && !base::beginsWith(text, "fe80:");
}

}  // namespace

void findTerminalAddresses(AddressList& addresses) {
  addresses.clear();
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) return;
  const std::unique_ptr<ifaddrs, FreeInterfaces> list(first);
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    const std::string text = numericText(entry->ifa_addr);
    if (isReachable(*entry, text)) addresses.emplace_back(entry->ifa_name, text.substr(0, text.find('%')));
  }
}
