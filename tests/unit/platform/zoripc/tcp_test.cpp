#include <fcntl.h>
#include <netinet/tcp.h>
#include <zoripc.h>

#include <cerrno>
#include <memory>
#include <string>

#include "tests/unit/platform/zoripc/sockets.h"

using zoripc::IPC;
using zoripc::TCP;

namespace {

constexpr int kLongMs = 60000;

int option(int fd, int level, int name) {
  int value = -1;
  socklen_t length = sizeof value;
  getsockopt(fd, level, name, &value, &length);
  return value;
}

bool closesOnExec(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

}  // namespace

TEST(Tcp, EverySocket_ClosesOnExecAndConnectionsSendAtOnce) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  TCP client;
  ASSERT_TRUE(client.connect("127.0.0.1", portOf(listener), kLongMs));
  const std::unique_ptr<IPC> server(listener.accept(kLongMs));
  for (const int fd : {listener.getFD(), client.getFD(), server->getFD()}) EXPECT_TRUE(closesOnExec(fd));
  for (const int fd : {client.getFD(), server->getFD()}) EXPECT_EQ(option(fd, IPPROTO_TCP, TCP_NODELAY), 1);
  EXPECT_EQ(option(listener.getFD(), SOL_SOCKET, SO_REUSEADDR), 1);
}

TEST(Tcp, DeletedStream_IsClosed) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  const RawSocket client = rawConnect(portOf(listener));
  delete listener.accept(kLongMs);
  EXPECT_EQ(client.receiveAll(), "");
}

TEST(Tcp, NewObject_IsNotConnected) {
  TCP tcp;
  EXPECT_EQ(tcp.getFD(), -1);
  EXPECT_FALSE(tcp.closed());
  EXPECT_FALSE(tcp.failed());
  EXPECT_FALSE(tcp.write("x", 1));
}

TEST(TcpConnect, NobodyListens_IsRefused) {
  unsigned short port = 0;
  rawListener(port).close();
  TCP client;
  EXPECT_FALSE(client.connect("127.0.0.1", port, kLongMs));
  EXPECT_EQ(errno, ECONNREFUSED);
  EXPECT_EQ(client.getFD(), -1);
}

TEST(TcpConnect, NumericAddressWithoutTime_ConnectsWhenThatTakesNone) {
  unsigned short port = 0;
  const RawSocket listener = rawListener(port);
  TCP client;
  EXPECT_FALSE(client.connect("127.0.0.1", port, 0) && client.getFD() < 0);
  TCP patient;
  EXPECT_TRUE(patient.connect("127.0.0.1", port, -1));
}

TEST(TcpConnect, ServerWhoseQueueIsFull_TimesOut) {
  unsigned short port = 0;
  const RawSocket listener = rawListener(port, 0);
  const RawSocket queued = rawConnect(port);
  TCP client;
  EXPECT_FALSE(client.connect("127.0.0.1", port, 50));
  EXPECT_EQ(errno, ETIMEDOUT);
}

TEST(TcpConnect, Name_IsLookedUpAndEachAddressTried) {
  unsigned short port = 0;
  const RawSocket listener = rawListener(port);  // IPv4 alone, while the name may stand for both
  TCP client;
  EXPECT_TRUE(client.connect("localhost", port, kLongMs)) << errno;
}

TEST(TcpConnect, NameWithoutAddress_Fails) {
  TCP client;
  EXPECT_FALSE(client.connect(std::string(70, 'x').c_str(), 80, kLongMs));  // no label is that long
  EXPECT_EQ(errno, EHOSTUNREACH);
  EXPECT_FALSE(client.connect("", 80, kLongMs));
  EXPECT_EQ(errno, EHOSTUNREACH);
  EXPECT_FALSE(client.connect(nullptr, 80, kLongMs));
}

TEST(TcpConnect, NameWithoutTimeToLookItUp_TimesOut) {
  TCP client;
  EXPECT_FALSE(client.connect("localhost", 1, 0));
  EXPECT_TRUE(errno == ETIMEDOUT || errno == ECONNREFUSED) << errno;
}

TEST(TcpConnect, ConnectedObject_CanConnectAnew) {
  unsigned short port = 0;
  const RawSocket listener = rawListener(port);
  TCP client;
  ASSERT_TRUE(client.connect("127.0.0.1", port, kLongMs));
  const RawSocket first(accept(listener.fd(), nullptr, nullptr));
  ASSERT_TRUE(client.connect("127.0.0.1", port, kLongMs));
  const RawSocket second(accept(listener.fd(), nullptr, nullptr));
  EXPECT_EQ(first.receiveAll(), "");
  second.send("wxyz");
  char bytes[4] = "";
  EXPECT_TRUE(client.readExact(bytes, 1, kLongMs));
  EXPECT_EQ(client.read(bytes + 1, 2, kLongMs), 2U);
  EXPECT_STREQ(bytes, "wxy");
}
