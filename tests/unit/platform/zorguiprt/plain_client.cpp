#include "tests/unit/platform/zorguiprt/plain_client.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

std::string readAll(int fd) {
  std::string answer;
  char block[4096];
  errno = 0;
  for (ssize_t count = 1; count > 0;) {
    count = recv(fd, block, sizeof block, 0);
    if (count > 0) answer.append(block, static_cast<std::size_t>(count));
  }
  EXPECT_NE(errno, EAGAIN) << "the connection is not closed";
  close(fd);
  return answer;
}

std::string answerOf(int port, const std::string& request) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const timeval patience{60, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << std::strerror(errno);
  EXPECT_EQ(send(fd, request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
  return readAll(fd);
}
