#include "platform/linux/zoripc/socket_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstring>

namespace zoripc {

std::string localAddressOf(int fd) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) return "";
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (address.ss_family == AF_INET) {
    sockaddr_in four{};
    std::memcpy(&four, &address, sizeof four);
    inet_ntop(AF_INET, &four.sin_addr, text.data(), text.size());
    return std::string(text.data()) + ":" + std::to_string(ntohs(four.sin_port));
  }
  if (address.ss_family != AF_INET6) return "";
  sockaddr_in6 six{};
  std::memcpy(&six, &address, sizeof six);
  const std::string port = ":" + std::to_string(ntohs(six.sin6_port));
  if (IN6_IS_ADDR_V4MAPPED(&six.sin6_addr)) {
    inet_ntop(AF_INET, &six.sin6_addr.s6_addr[12], text.data(), text.size());
    return text.data() + port;
  }
  inet_ntop(AF_INET6, &six.sin6_addr, text.data(), text.size());
  return "[" + std::string(text.data()) + "]" + port;
}

}  // namespace zoripc
