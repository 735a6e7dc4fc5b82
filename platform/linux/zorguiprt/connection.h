// A connection to the screen's server.
#pragma once

#include <cstddef>
#include <string_view>

#include "base/deadline.h"
#include "base/descriptor.h"

namespace jxplatform {

// The bytes of a client that has connected, within the server's time limits. Reading ends with the client's last byte,
// after five silent seconds, or half a minute after the connection was made; writing after five seconds in which the
// client takes nothing, or when the answer's time is over. A client that has said all it has to say, and has closed its
// direction, still gets its answer. One thread at a time.
class Connection {
 public:
  static constexpr int kSilenceMs = 5'000;
  static constexpr int kWholeMs = 30'000;

  explicit Connection(base::Descriptor socket);

  [[nodiscard]] int socket() const { return socket_.get(); }

  // Reads between one and `size` bytes; 0 when none comes any more. Blocks.
  [[nodiscard]] std::size_t read(char* data, std::size_t size);

  // Writes all of `bytes` before `end`; false when the client does not take them. Blocks.
  [[nodiscard]] bool write(std::string_view bytes, const base::Deadline& end);

  // Closes so that what was written arrives even when the client has sent more than was read. Blocks for half a second
  // at most; nothing is read or written afterwards.
  void closeGently();

 private:
  [[nodiscard]] bool waitFor(short events, const base::Deadline& end) const;

  base::Descriptor socket_;
  const base::Deadline readEnd_;
};

}  // namespace jxplatform
