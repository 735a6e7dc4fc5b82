#include <zoripc.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "tests/unit/platform/zoripc/driven_time.h"
#include "tests/unit/platform/zoripc/failing_calls.h"
#include "tests/unit/platform/zoripc/sockets.h"

using zoripc::IPC;
using zoripc::TCP;

namespace {

constexpr int kLongMs = 60000;

// How many connections the system keeps for a listener at most.
int largestBacklog() {
  int most = 0;
  std::ifstream("/proc/sys/net/core/somaxconn") >> most;
  return std::min(most, SOMAXCONN);
}

}  // namespace

TEST(TcpListener, NullAddress_TakesIpv4AndIpv6) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0) << errno;
  for (const char* host : {"127.0.0.1", "::1"}) {
    TCP client;
    ASSERT_TRUE(client.connect(host, portOf(listener), kLongMs)) << host;
    const std::unique_ptr<IPC> server(listener.accept(kLongMs));
    EXPECT_NE(server, nullptr) << host;
  }
}

TEST(TcpListener, NullAddress_TakesIpv4WhereSocketsTakeIpv6AloneByDefault) {
  const failing::Ipv6Alone setting;
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0) << errno;
  EXPECT_EQ(listener.localAddress().substr(0, 4), "[::]");
  rawConnect(portOf(listener));
}

TEST(TcpListener, NullAddress_TakesIpv4WhereThereIsNoIpv6) {
  for (const int error : {EAFNOSUPPORT, EADDRNOTAVAIL}) {
    const failing::Calls calls("socket", {error});
    TCP listener;
    ASSERT_NE(listener.listen(0, nullptr), 0) << errno;
    EXPECT_EQ(listener.localAddress(), "0.0.0.0:" + std::to_string(portOf(listener)));
    rawConnect(portOf(listener));
  }
}

TEST(TcpListener, NoSocket_FailsWithTheReason) {
  const failing::Calls calls("socket", {EMFILE});
  TCP listener;
  EXPECT_EQ(listener.listen(0, nullptr), 0);
  EXPECT_EQ(errno, EMFILE);
}

TEST(TcpListener, GivenAddress_IsTheOnlyOne) {
  TCP listener;
  ASSERT_NE(listener.listen(0, "127.0.0.2"), 0);
  EXPECT_EQ(listener.localAddress(), "127.0.0.2:" + std::to_string(portOf(listener)));
  TCP client;
  EXPECT_FALSE(client.connect("127.0.0.1", portOf(listener), kLongMs));
  EXPECT_EQ(errno, ECONNREFUSED);
  EXPECT_TRUE(client.connect("127.0.0.2", portOf(listener), kLongMs));
}

TEST(TcpListener, LocalAddress_EndsInThePort) {
  TCP listener;
  EXPECT_EQ(listener.localAddress(), "");
  ASSERT_NE(listener.listen(0, nullptr), 0);
  EXPECT_EQ(listener.localAddress(), "[::]:" + std::to_string(portOf(listener)));
  EXPECT_GT(portOf(listener), 0);
  TCP six;
  ASSERT_NE(six.listen(0, "::1"), 0);
  EXPECT_EQ(six.localAddress(), "[::1]:" + std::to_string(portOf(six)));
}

TEST(TcpListener, AcceptedIpv4_IsToldPlain) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  const RawSocket client = rawConnect(portOf(listener));
  const std::unique_ptr<IPC> server(listener.accept(kLongMs));
  EXPECT_EQ(dynamic_cast<TCP&>(*server).localAddress(), "127.0.0.1:" + std::to_string(portOf(listener)));
}

TEST(TcpListener, PortInUse_FailsWithTheReason) {
  TCP first;
  ASSERT_NE(first.listen(0, nullptr), 0);
  TCP second;
  EXPECT_EQ(second.listen(portOf(first), nullptr), 0);
  EXPECT_EQ(errno, EADDRINUSE);
  EXPECT_EQ(second.getFD(), -1);
}

TEST(TcpListener, AddressThatIsNone_Fails) {
  TCP listener;
  for (const char* address : {"", "localhost", "256.1.1.1", "[::1]"})
    EXPECT_EQ(listener.listen(0, address), 0) << address;
  EXPECT_EQ(listener.listen(0, "192.0.2.1"), 0);
  EXPECT_EQ(errno, EADDRNOTAVAIL);
}

TEST(TcpListener, PortOfAConnectionJustClosed_CanBeListenedOnAgain) {
  auto listener = std::make_unique<TCP>();
  ASSERT_NE(listener->listen(0, nullptr), 0);
  const unsigned short port = portOf(*listener);
  const RawSocket client = rawConnect(port);
  std::unique_ptr<IPC> server(listener->accept(kLongMs));
  server.reset();
  listener.reset();
  TCP again;
  EXPECT_NE(again.listen(port, nullptr), 0) << errno;
}

TEST(TcpListener, Queue_TakesAsManyAsTheSystemKeeps) {
  TCP listener;
  ASSERT_NE(listener.listen(0, "127.0.0.1"), 0);
  const int most = largestBacklog();
  ASSERT_GT(most, 0);
  for (int i = 0; i < most; ++i) {
    TCP client;
    ASSERT_TRUE(client.connect("127.0.0.1", portOf(listener), kLongMs)) << i << " of " << most;
    const RawSocket end(dup(client.getFD()));
    end.resetOnClose();  // keeps its place in the queue, and nothing else
  }
}

TEST(TcpListener, AcceptWithoutAConnection_TimesOut) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  const driven::Time time;
  EXPECT_EQ(listener.accept(0), nullptr);
  EXPECT_EQ(time.now(), 0);
  EXPECT_EQ(listener.accept(500), nullptr);
  EXPECT_EQ(time.now(), 500);
}

TEST(TcpListener, Accept_WaitsForAConnection) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  for (const int timeoutMs : {kLongMs, -1}) {
    driven::Time time;
    std::unique_ptr<RawSocket> client;
    time.at(kLongMs - 1, [&] { client = std::make_unique<RawSocket>(rawConnect(portOf(listener))); });
    const std::unique_ptr<IPC> server(listener.accept(timeoutMs));
    EXPECT_NE(server, nullptr);
    EXPECT_EQ(time.now(), kLongMs - 1);
  }
}

TEST(TcpListener, AcceptForWantOfSomething_PausesAndLosesNothing) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  const RawSocket client = rawConnect(portOf(listener));
  for (const int error : {EMFILE, ENFILE, ENOBUFS, ENOMEM}) {
    const driven::Time time;
    const failing::Calls calls("accept4", {error});
    EXPECT_EQ(listener.accept(kLongMs), nullptr);
    EXPECT_EQ(time.now(), 100) << error;
  }
  const std::unique_ptr<IPC> server(listener.accept(kLongMs));
  EXPECT_NE(server, nullptr);
}

TEST(TcpListener, AcceptOfAConnectionThatFailed_TakesTheNextAtOnce) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  for (const int error : {EINTR, ECONNABORTED, EPROTO, EPERM, ENETDOWN, ENETUNREACH, ENOPROTOOPT, EHOSTDOWN, ENONET,
                          EHOSTUNREACH, EOPNOTSUPP}) {
    const RawSocket client = rawConnect(portOf(listener));
    const driven::Time time;
    for (const int timeoutMs : {0, kLongMs}) {
      const failing::Calls calls("accept4", {error, error});
      const std::unique_ptr<IPC> server(listener.accept(timeoutMs));
      EXPECT_EQ(server != nullptr, timeoutMs == 0) << error;
    }
    EXPECT_EQ(time.now(), kLongMs);
  }
}

TEST(TcpListener, ConnectionsThatFailForEver_DoNotOutlastTheTime) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  driven::Time time;
  const failing::Calls calls("accept4", std::vector<int>(100, ECONNABORTED), [&] { time.pass(100); });
  EXPECT_EQ(listener.accept(500), nullptr);
  EXPECT_EQ(time.now(), 500);
}

TEST(TcpListener, AcceptThatCannotSucceed_FailsAtOnce) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  const RawSocket client = rawConnect(portOf(listener));
  const driven::Time time;
  for (const int error : {EBADF, EINVAL, ENOTSOCK}) {
    const failing::Calls calls("accept4", {error});
    EXPECT_EQ(listener.accept(-1), nullptr);
    EXPECT_EQ(errno, error);
  }
  TCP nothing;
  EXPECT_EQ(nothing.accept(-1), nullptr);
  EXPECT_EQ(time.now(), 0);
}

TEST(TcpListener, AcceptInterrupted_WaitsOn) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  const driven::Time time;
  const failing::Calls calls("poll", {EINTR, EINTR});
  EXPECT_EQ(listener.accept(500), nullptr);
  EXPECT_EQ(calls.left(), 0U);
  EXPECT_EQ(time.now(), 500);
}

TEST(TcpListener, ConnectionResetInTheQueue_DoesNotHurtTheNext) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  {
    const RawSocket hasty = rawConnect(portOf(listener));
    hasty.resetOnClose();
  }
  RawSocket client = rawConnect(portOf(listener));
  client.send("x");
  client.close();
  char byte = 0;
  std::unique_ptr<IPC> server(listener.accept(kLongMs));
  ASSERT_NE(server, nullptr);
  if (!server->readExact(&byte, 1, kLongMs)) {
    EXPECT_TRUE(server->failed());
    server.reset(listener.accept(kLongMs));
    ASSERT_NE(server, nullptr);
    EXPECT_TRUE(server->readExact(&byte, 1, kLongMs));
  }
  EXPECT_EQ(byte, 'x');
}
