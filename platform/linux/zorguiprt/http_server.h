// The web server library, with connections of our own.
#pragma once

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>

#include "platform/linux/zorguiprt/connection_threads.h"

namespace jxplatform {

// A client that has connected. Reading ends with the client's last byte, after five silent seconds, or half a minute
// after the connection was made; writing after five seconds in which the client takes nothing, or half a minute after
// its beginning. A client that has said all it has to say, and has closed its direction, still gets its answer.
class ClientStream : public httplib::Stream {
 public:
  static constexpr std::chrono::seconds kSilence{5};
  static constexpr std::chrono::seconds kWhole{30};

  // `socket` stays the caller's.
  explicit ClientStream(socket_t socket);

  bool is_readable() const override;
  bool is_writable() const override;
  ssize_t read(char* data, size_t size) override;
  ssize_t write(const char* data, size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return socket_; }

 private:
  using Clock = std::chrono::steady_clock;

  bool waitFor(short events, Clock::time_point end) const;
  ssize_t receive(char* data, size_t size);

  const socket_t socket_;
  const Clock::time_point readEnd_;
  Clock::time_point writeEnd_{};
  char buffer_[4096];
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

// Serves one request a connection. The library itself would answer nobody who has closed his direction, set no limit to
// the time of a request, keep five clients waiting at most, and end with the first lack of memory outside its routing
// or of what the system needs for a connection.
class HttpServer : public httplib::Server {
 public:
  HttpServer() = default;
  ~HttpServer() override;
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // Has the library make what it keeps for the rest of the process. The process destroys that in the reverse order of
  // its making, so what ends a server at the end of the process has to be registered after this. Throws std::bad_alloc.
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
