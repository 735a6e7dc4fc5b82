// A connected stream socket behind the stream contract of zoripc.h.
#pragma once

#include <cstddef>
#include <utility>

#include "base/deadline.h"
#include "base/descriptor.h"
#include "platform/linux/zoripc/read_ahead.h"
#include "platform/linux/zoripc/send_gather.h"

namespace zoripc {

// Reads ahead, gathers writes, and closes without losing what was written. One thread at a time; no operation throws
// or raises SIGPIPE. The operations mean what those of zoripc::IPC say.
class SocketStream {
 public:
  // A peer that takes nothing for this long fails the write that waits for it.
  static constexpr int kWriteStallMs = 30000;

  // Closing waits for the peer to take what was written and to close in its turn, reading on and discarding, because a
  // close with bytes unread resets the connection and takes the last answer with it. It ends by force after
  // kCloseMs altogether, kCloseSilenceMs without a byte from the peer, or kCloseDrainBytes discarded. A stream that
  // nobody has used discards what is there, without a wait: a listener may have to turn many away.
  static constexpr int kCloseMs = 10000;
  static constexpr int kCloseSilenceMs = 2000;
  static constexpr std::size_t kCloseDrainBytes = std::size_t{64} * 1024 * 1024;

  // Takes over a connected socket, blocking or not; none makes a stream that is not connected.
  explicit SocketStream(base::Descriptor socket = {}) : socket_(std::move(socket)) {}
  SocketStream(const SocketStream&) = delete;
  SocketStream& operator=(const SocketStream&) = delete;
  ~SocketStream() { close(); }

  int fd() const { return socket_.get(); }
  [[nodiscard]] bool readExact(void* data, std::size_t size, int timeoutMs, int gapTimeoutMs) {
    return ahead_.takeAll(data, size) || receiveExact(data, size, timeoutMs, gapTimeoutMs);
  }
  [[nodiscard]] std::size_t read(void* data, std::size_t size, int timeoutMs);
  [[nodiscard]] bool write(const void* data, std::size_t size);
  bool closed() const { return ended_; }
  bool failed() const { return readFailed_ || writeFailed_; }

  // Closes what is held and takes over `socket`.
  void reset(base::Descriptor socket);

  // Has reads wait in the receiving call itself, for a moment, before they poll: a peer that answers at once then costs
  // one system call for each read instead of two. For a socket that blocks.
  void waitInReads();

 private:
  [[nodiscard]] bool receiveExact(void* data, std::size_t size, int timeoutMs, int gapTimeoutMs);
  [[nodiscard]] std::size_t receive(void* data, std::size_t size, bool waiting);
  [[nodiscard]] std::size_t receiveInto(void* data, std::size_t size, bool waiting);
  [[nodiscard]] std::size_t readSome(void* data, std::size_t size, const base::Deadline& deadline);
  [[nodiscard]] bool mayWait(int timeoutMs) const;
  [[nodiscard]] bool waitForInput(const base::Deadline& deadline);
  [[nodiscard]] bool pollOnce(short events, int timeoutMs, short& happened);
  bool holdsIdleMemory() const { return out_.empty() && (ahead_.idle() || out_.idle()); }
  void releaseIdleMemory();
  [[nodiscard]] std::size_t sendOnce(const void* data, std::size_t size);
  [[nodiscard]] bool sendAll(const void* data, std::size_t size, int stallMs, const base::Deadline& deadline);
  void close();
  void drain(const base::Deadline& deadline, int silenceMs);

  base::Descriptor socket_;
  bool ended_ = false;
  bool readFailed_ = false;
  bool writeFailed_ = false;
  bool used_ = false;     // read or written
  bool closing_ = false;  // what is sent waits for the end of the stream, which goes out with it
  bool waitsInReads_ = false;
  ReadAhead ahead_;
  SendGather out_;
};

}  // namespace zoripc
