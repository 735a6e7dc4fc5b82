// Raw sockets for the far end of a stream under test.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zoripc.h>

#include <memory>
#include <string>
#include <utility>

#include "base/descriptor.h"
#include "platform/linux/zoripc/socket_stream.h"

// A socket with which a test plays the other end.
class RawSocket {
 public:
  explicit RawSocket(int fd = -1) : fd_(fd) {}
  int fd() const { return fd_.get(); }
  int release() { return fd_.release(); }
  void close() { fd_ = {}; }

  // Sends everything; false when the other end has gone.
  bool send(const std::string& bytes) const {
    for (std::size_t at = 0; at < bytes.size();) {
      const ssize_t count = ::send(fd_.get(), bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
      if (count <= 0) return false;
      at += static_cast<std::size_t>(count);
    }
    return true;
  }

  // Sends what the other end takes at once; returns how many bytes.
  std::size_t sendSome(const std::string& bytes) const {
    const ssize_t count = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
  }

  // Receives exactly `size` bytes, or what came before the end.
  std::string receive(std::size_t size) const {
    std::string bytes(size, '\0');
    const ssize_t count = size == 0 ? 0 : recv(fd_.get(), bytes.data(), size, MSG_WAITALL);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
  }

  // Receives up to `size` bytes of those that are there.
  std::string receiveSome(std::size_t size) const {
    std::string bytes(size, '\0');
    const ssize_t count = recv(fd_.get(), bytes.data(), size, MSG_DONTWAIT);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
  }

  // Receives up to the end of the stream; `reset` tells whether it ended in an error.
  std::string receiveAll(bool* reset = nullptr) const {
    std::string all;
    char block[4096];
    ssize_t count = 0;
    while ((count = recv(fd_.get(), block, sizeof block, 0)) > 0) all.append(block, static_cast<std::size_t>(count));
    if (reset != nullptr) *reset = count < 0;
    return all;
  }

  // Bytes that wait to be received.
  int waiting() const {
    int count = -1;
    ioctl(fd_.get(), FIONREAD, &count);
    return count;
  }

  // Makes the close that follows a reset.
  void resetOnClose() const {
    const linger abort{1, 0};
    setsockopt(fd_.get(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
  }

 private:
  base::Descriptor fd_;
};

struct RawPair {
  RawSocket near;
  RawSocket far;
};

inline RawPair localPair(int type = SOCK_STREAM) {
  int fds[2] = {-1, -1};
  EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, fds), 0);
  return {RawSocket(fds[0]), RawSocket(fds[1])};
}

// A listening socket on a free port of 127.0.0.1; `port` is told.
inline RawSocket rawListener(unsigned short& port, int backlog = 16) {
  RawSocket listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  EXPECT_EQ(bind(listener.fd(), reinterpret_cast<sockaddr*>(&address), length), 0);
  EXPECT_EQ(listen(listener.fd(), backlog), 0);
  EXPECT_EQ(getsockname(listener.fd(), reinterpret_cast<sockaddr*>(&address), &length), 0);
  port = ntohs(address.sin_port);
  return listener;
}

inline RawSocket rawConnect(unsigned short port, int receiveBuffer = 0) {
  RawSocket client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (receiveBuffer > 0) setsockopt(client.fd(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  EXPECT_EQ(connect(client.fd(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return client;
}

inline RawPair tcpPair(int receiveBuffer = 0) {
  unsigned short port = 0;
  const RawSocket listener = rawListener(port);
  RawSocket far = rawConnect(port, receiveBuffer);
  RawSocket near(accept4(listener.fd(), nullptr, nullptr, SOCK_CLOEXEC));
  EXPECT_GE(near.fd(), 0);
  return {std::move(near), std::move(far)};
}

// Where reads wait first.
enum class Waits { InPoll, InReads };

inline const auto kBothWaits = testing::Values(Waits::InPoll, Waits::InReads);

inline std::string nameOfWaits(const testing::TestParamInfo<Waits>& info) {
  return info.param == Waits::InPoll ? "InPoll" : "InReads";
}

// A stream at the pair's near end.
inline std::unique_ptr<zoripc::SocketStream> makeStream(RawPair& pair, Waits waits) {
  auto stream = std::make_unique<zoripc::SocketStream>(base::Descriptor(pair.near.release()));
  if (waits == Waits::InReads) stream->waitInReads();
  return stream;
}

// The port of what listens.
inline unsigned short portOf(const zoripc::TCP& listener) {
  const std::string address = listener.localAddress();
  return static_cast<unsigned short>(std::stoi(address.substr(address.rfind(':') + 1)));
}

// Text in which every position can be told from its neighbours.
inline std::string pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>((i * 31 + i / 251) & 0xFF);
  return text;
}
