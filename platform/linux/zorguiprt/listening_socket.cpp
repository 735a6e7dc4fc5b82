#include "platform/linux/zorguiprt/listening_socket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "base/file_io.h"
#include "platform/linux/support/connect.h"
#include "platform/linux/support/failure.h"

namespace jxplatform {
namespace {

// The port can be taken again at once, though its last clients are not forgotten yet; answers go out without delay.
void setOptions(int socket) {
  const int on = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

}  // namespace

int ListeningSocket::open(const ServerAddress& address) {
  const AddressList addresses = resolve(address.host, static_cast<unsigned short>(address.port), AI_PASSIVE);
  if (addresses == nullptr) throw Failure("no such address");
  const addrinfo* next = addresses.get();
  while (next != nullptr && !listenAt(*next)) next = next->ai_next;
  if (next == nullptr) throw Failure(base::errorText(errno));
  return port();
}

// False with errno.
bool ListeningSocket::listenAt(const addrinfo& address) {
  base::Descriptor made(socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!made) return false;
  setOptions(made.get());
  if (bind(made.get(), address.ai_addr, address.ai_addrlen) != 0 || listen(made.get(), SOMAXCONN) != 0) return false;
  socket_ = std::move(made);
  return true;
}

int ListeningSocket::port() const {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size);
  // The port stands at the same place in the addresses of both families.
  return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
}

base::Descriptor ListeningSocket::accept() const {
  return base::Descriptor(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
}

// Closed by the destructor alone: accept() might otherwise meet another file under the socket's number.
void ListeningSocket::end() {
  ended_ = true;
  shutdown(socket_.get(), SHUT_RDWR);
}

}  // namespace jxplatform
