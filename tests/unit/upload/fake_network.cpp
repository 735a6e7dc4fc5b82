#include "tests/unit/upload/fake_network.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace {

// An entry with what it points to.
struct Node {
  ifaddrs entry{};
  sockaddr_storage address{};
  std::string name;
};

std::vector<Node> nodes;

void setAddress(sockaddr_storage& storage, const std::string& text) {
  if (text == "packet") {
    storage.ss_family = AF_PACKET;
  } else if (text.find(':') == std::string::npos) {
    auto& address = reinterpret_cast<sockaddr_in&>(storage);
    address.sin_family = AF_INET;
    inet_pton(AF_INET, text.c_str(), &address.sin_addr);
  } else {
    auto& address = reinterpret_cast<sockaddr_in6&>(storage);
    address.sin6_family = AF_INET6;
    const std::size_t zone = text.find('%');
    if (zone != std::string::npos) address.sin6_scope_id = static_cast<unsigned>(std::stoi(text.substr(zone + 1)));
    inet_pton(AF_INET6, text.substr(0, zone).c_str(), &address.sin6_addr);
  }
}

}  // namespace

FakeNetwork& FakeNetwork::instance() {
  static FakeNetwork network;
  return network;
}

void FakeNetwork::reset() { *this = FakeNetwork(); }

void FakeNetwork::add(const std::string& interface, const std::string& address, unsigned flags) {
  entries.push_back({interface, address, flags});
}

extern "C" {

int __wrap_getifaddrs(ifaddrs** list);
void __wrap_freeifaddrs(ifaddrs* list);
int __wrap_getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostSize, char* service,
                       socklen_t serviceSize, int flags);
int __real_getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostSize, char* service,
                       socklen_t serviceSize, int flags);
unsigned __wrap_sleep(unsigned seconds);

int __wrap_getifaddrs(ifaddrs** list) {
  FakeNetwork& network = FakeNetwork::instance();
  const bool hidden = static_cast<int>(network.sleeps.size()) < network.appearsAfterSleeps;
  nodes.assign(hidden ? 0 : network.entries.size(), Node());
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    Node& node = nodes[i];
    node.name = network.entries[i].interface;
    node.entry.ifa_name = node.name.data();
    node.entry.ifa_flags = network.entries[i].flags;
    setAddress(node.address, network.entries[i].address);
    if (!network.entries[i].address.empty()) node.entry.ifa_addr = reinterpret_cast<sockaddr*>(&node.address);
    if (i > 0) nodes[i - 1].entry.ifa_next = &node.entry;
  }
  *list = nodes.empty() ? nullptr : &nodes[0].entry;  // also when it fails: nobody may look there then
  if (network.failInterfaces) return -1;
  ++network.lists;
  ++network.openLists;
  return 0;
}

void __wrap_freeifaddrs(ifaddrs* list) {
  if (list != (nodes.empty() ? nullptr : &nodes[0].entry)) return;
  --FakeNetwork::instance().openLists;
}

int __wrap_getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostSize, char* service,
                       socklen_t serviceSize, int flags) {
  if (address->sa_family == AF_PACKET) return std::strcpy(host, "020000000001"), 0;
  const int result = __real_getnameinfo(address, length, host, hostSize, service, serviceSize, flags);
  const auto& failing = FakeNetwork::instance().failNames;
  if (std::find(failing.begin(), failing.end(), host) != failing.end()) return EAI_FAIL;
  const socklen_t expected = address->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  const bool asStated = length == expected && hostSize == 1025 && service == nullptr && flags == NI_NUMERICHOST;
  return asStated ? result : EAI_FAIL;
}

unsigned __wrap_sleep(unsigned seconds) {
  FakeNetwork::instance().sleeps.push_back(seconds);
  return 0;
}
}
