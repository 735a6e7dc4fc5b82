// Where the screen's server is reached.
#pragma once

#include <atomic>
#include <string>

#include "base/descriptor.h"
#include "platform/linux/zorguiprt/own_names.h"

struct addrinfo;

namespace jxplatform {

// A socket at which clients connect. The number of those that the system keeps waiting is the system's own.
class ListeningSocket {
 public:
  // Begins to listen at `address`, and tells in it which port that is. Empty, or the reason why it cannot. Called once.
  // Blocks while "localhost" is looked up.
  [[nodiscard]] std::string open(ServerAddress& address);

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
