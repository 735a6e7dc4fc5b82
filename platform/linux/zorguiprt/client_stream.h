// A connection to the screen's server, as the web server library sees it.
#pragma once

#include <httplib.h>

#include <chrono>
#include <cstddef>

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

}  // namespace jxplatform
