// The server of one request a connection.
#pragma once

#include <functional>
#include <mutex>
#include <set>
#include <string>

#include "platform/linux/zorguiprt/answer.h"
#include "platform/linux/zorguiprt/connection.h"
#include "platform/linux/zorguiprt/connection_threads.h"
#include "platform/linux/zorguiprt/listening_socket.h"
#include "platform/linux/zorguiprt/request.h"

namespace jxplatform {

// Accepts connections, reads a request from each, and answers it.
class HttpServer {
 public:
  // Answers a request, on the thread of its connection. What it throws is answered as a want of memory.
  using Handler = std::function<Answer(const Request&)>;

  explicit HttpServer(Handler handler);

  // Begins to listen at `address`; returns the port, which is another one where that is 0. Called once. Throws Failure.
  [[nodiscard]] int listen(const ServerAddress& address);

  // Accepts connections, which `threads` serve, until end() is called. Without the means for a connection it tries
  // again a little later; whoever connects meanwhile waits. Throws nothing.
  void serve(ConnectionThreads& threads);

  // Answers the connection's one request, and closes `socket`. Any thread. Throws nothing.
  void answer(int socket);

  // Lets nobody connect any more, and so ends serve(), even one that has not begun yet. Any thread.
  void end();

  // Breaks off the connections of now and those still to come: no reading or writing waits any more. Any thread.
  void breakOff();

 private:
  // Counts a connection among those that can be broken off, as long as it lives.
  class Served;

  void exchange(Connection& connection) const;
  [[nodiscard]] Answer answerTo(const Request& request) const;

  const Handler handler_;
  ListeningSocket listener_;
  std::mutex servedMutex_;
  std::set<int> served_;
  bool brokenOff_ = false;
};

}  // namespace jxplatform
