#include "tests/unit/platform/zoripc/failing_calls.h"

#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

namespace failing {

namespace {

// Without an allocation before the first use: memory may have run out by then.
struct Script {
  std::string name;
  std::vector<int> errors;
  std::size_t met = 0;
  std::function<void()> before;
};

thread_local Script script;
thread_local bool ipv6Alone = false;

template <class Function>
Function real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool fails(const char* name) {
  const int error = next(name);
  if (error != 0) errno = error;
  return error != 0;
}

}  // namespace

Calls::Calls(const std::string& name, std::vector<int> errors, std::function<void()> before) {
  script = {name, std::move(errors), 0, std::move(before)};
}

Calls::~Calls() { script = {}; }

std::size_t Calls::left() const { return script.errors.size() - script.met; }

Ipv6Alone::Ipv6Alone() { ipv6Alone = true; }
Ipv6Alone::~Ipv6Alone() { ipv6Alone = false; }

int next(const char* name) {
  if (script.met == script.errors.size() || script.name != name) return 0;
  if (script.before) script.before();
  return script.errors[script.met++];
}

}  // namespace failing

// In place of the C library's, for every library of the process; the headers give its parameters reserved names.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
  static const auto call = failing::real<int (*)(int, sockaddr*, socklen_t*, int)>("accept4");
  return failing::fails("accept4") ? -1 : call(fd, address, length, flags);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  static const auto call = failing::real<ssize_t (*)(int, const msghdr*, int)>("sendmsg");
  return failing::fails("sendmsg") ? -1 : call(fd, message, flags);
}

int socket(int family, int type, int protocol) {
  static const auto call = failing::real<int (*)(int, int, int)>("socket");
  if (family == AF_INET6 && failing::fails("socket")) return -1;
  const int fd = call(family, type, protocol);
  const int on = 1;
  if (family == AF_INET6 && failing::ipv6Alone) setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
  return fd;
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
