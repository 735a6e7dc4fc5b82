// One HTTP exchange with a terminal.
#pragma once

#include <memory>
#include <string>

#include "http/http_proto.h"
#include "tools/jxpush/http/address.h"
#include "tools/jxpush/http/terminal_stream.h"

namespace jxpush {

// What is needed to reach a terminal.
struct HttpConnection {
  HttpAddress address;
  int waitSeconds = 60;      // for the connection
  bool waitForDoor = false;  // tries again within that time while the terminal refuses or is not there
  int silenceSeconds = 900;  // how long the terminal may neither take nor give a byte
  int stopFd = -1;
};

// An answer's head.
struct AnswerHead {
  int status = 0;  // 0: what came is no HTTP answer, or its head was cut
  std::string contentType;
};

class HttpExchange : public zorhtml::HttpProto {
 public:
  // Connects. Throws Problem: kNoPort, kInterrupted.
  explicit HttpExchange(const HttpConnection& connection);

  // Writes the head of a request for `path`; `length` -1 chunks the body. False when the connection has ended.
  [[nodiscard]] bool begin(zorhtml::HttpMethod method, const std::string& path, int length,
                           const std::string& contentType);
  // Sends what has been gathered.
  [[nodiscard]] bool flush() { return connection == nullptr ? false : stream_->flush(); }

  // Blocks until the head of the answer is there.
  [[nodiscard]] AnswerHead readHead();
  // Reads the answer's body. False when it is cut, damaged or larger than `limit` bytes.
  [[nodiscard]] bool readContent(std::string& content, std::size_t limit);

  // Null once the connection has been given up; state() tells why.
  [[nodiscard]] TerminalStream* stream() const { return connection == nullptr ? nullptr : stream_; }
  [[nodiscard]] const StreamState& state() const { return state_; }
  [[nodiscard]] std::string stateText() const { return state_.text(timeout); }

 private:
  StreamState state_;
  TerminalStream* stream_ = nullptr;  // the engine's `connection`
  std::string host_;
};

}  // namespace jxpush
