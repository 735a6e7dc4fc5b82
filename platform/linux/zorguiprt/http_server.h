// The web server library, with connections of our own.
#pragma once

#include <httplib.h>

#include <atomic>
#include <mutex>
#include <set>

#include "platform/linux/zorguiprt/connection_threads.h"

namespace jxplatform {

// Serves one request a connection. The library itself would answer nobody who has closed his direction, set no limit to
// the time of a request, keep five clients waiting at most, and end with the first lack of memory outside its routing
// or of what the system needs for a connection.
class HttpServer : public httplib::Server {
 public:
  HttpServer() = default;
  ~HttpServer() override;
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // Has the library make what it keeps for the rest of the process (but for forms, which are not to be read). The
  // process destroys that in the reverse order of its making, so what ends a server at the end of the process has to be
  // registered after this. Throws std::bad_alloc.
  static void warmUp();

  // After binding: lets the system keep as many clients waiting as it does for anybody.
  void raiseBacklog();

  // After binding: accepts connections, which `threads` serve, until end() is called. Without the means for a
  // connection it tries again a little later; whoever connects meanwhile waits. Throws nothing.
  void serve(ConnectionThreads& threads);

  // Answers the connection's one request, and closes `socket`. Any thread. Throws nothing.
  void answer(socket_t socket);

  // Lets nobody connect any more, and so ends serve(), even one that has not begun yet. Any thread.
  void end();

  // Breaks off the connections of now and those still to come: no reading or writing waits any more. Any thread.
  void breakOff();

 private:
  // Counts a connection among those that can be broken off, as long as it lives.
  class Served;

  std::atomic<bool> ended_{false};
  std::mutex servedMutex_;
  std::set<socket_t> served_;
  bool brokenOff_ = false;
};

}  // namespace jxplatform
