// System calls that fail when a test wants them to.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace failing {

// While it lives, the calling thread's next calls of `name` (accept4, poll, recv, sendmsg, or socket for IPv6) meet
// `errors`, one after the other: they fail with it, or go ahead where it is 0. Before each `before` is run.
class Calls {
 public:
  Calls(const std::string& name, std::vector<int> errors, std::function<void()> before = nullptr);
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;
  ~Calls();

  // How many have not been met yet.
  std::size_t left() const;
};

// While it lives, new IPv6 sockets of the calling thread do not take IPv4, as where net.ipv6.bindv6only is set.
class Ipv6Alone {
 public:
  Ipv6Alone();
  Ipv6Alone(const Ipv6Alone&) = delete;
  Ipv6Alone& operator=(const Ipv6Alone&) = delete;
  ~Ipv6Alone();
};

// The error of the thread's next call of `name`; 0: none. For the calls that other helpers stand in for.
int next(const char* name);

}  // namespace failing
