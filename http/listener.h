// The accept loop: a TCP endpoint whose connections are each served by a copy of a prototype.
#pragma once

#include <atomic>
#include <string>
#include <typeinfo>

#include "http/http_thread.h"

namespace zorhtml {

// What the caller of serve() asks for; it outlives the call. Another thread sets `stop` to end the loop, which looks at
// it after each second without an event.
struct ServerSettings {
  explicit ServerSettings(int listenPort) : port(listenPort) {}

  int port;             // -1: any free one, written back once listening; 0: none
  int auxEndpoint = 0;  // a second endpoint, which is not opened; not 0 keeps the loop alive without a port
  std::string text1;    // the listener reads neither the texts nor the option
  std::string text2;
  bool option = false;
  std::atomic<bool> stop{false};  // a byte, stored and loaded without ordering
};

// Makes the server object of one connection from the prototype. Null, or an exception, drops that connection alone.
using CopyServer = HttpThread* (*)(const HttpThread& prototype);

// Accepts connections and gives each a copy of the prototype on a detached thread, until `settings.stop` is seen.
// Returns true after a stop; false when the port could not be opened, for want of memory too, which is reported on
// standard error, or when there is nothing to serve. Connections under way are not waited for. Blocks.
bool serve(ServerSettings& settings, const HttpThread& prototype, CopyServer copy);

// The same with copies of the prototype's own class. False too, and nothing is opened, when `prototype` is known by a
// base of its class: a copy would have only that part of it.
template <class Server>
bool serve(ServerSettings& settings, const Server& prototype) {
  if (typeid(prototype) != typeid(Server)) return false;
  return serve(settings, prototype, [](const HttpThread& original) -> HttpThread* {
    return new Server(static_cast<const Server&>(original));
  });
}

}  // namespace zorhtml
