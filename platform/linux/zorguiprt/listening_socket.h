// Where the screen's server is reached.
#pragma once

#include <atomic>

#include "base/descriptor.h"
#include "platform/linux/zorguiprt/own_names.h"

struct addrinfo;

namespace jxplatform {

// A socket at which clients connect. The number of those that the system keeps waiting is the system's own.
class ListeningSocket {
 public:
  // Begins to listen at `address`; returns the port, which is another one where that is 0. Called once. Throws Failure.
  // Blocks while "localhost" is looked up.
  [[nodiscard]] int open(const ServerAddress& address);

  // Waits for the next client. None, with errno, when there is not one; after end() there never is.
  [[nodiscard]] base::Descriptor accept() const;

  // Lets nobody connect any more, and ends accept(). Any thread.
  void end();

  [[nodiscard]] bool ended() const { return ended_; }

 private:
  [[nodiscard]] bool listenAt(const addrinfo& address);
  [[nodiscard]] int port() const;

  base::Descriptor socket_;
  std::atomic<bool> ended_{false};
};

}  // namespace jxplatform
