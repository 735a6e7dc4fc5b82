#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <zoripc.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/platform/zoripc/sockets.h"

using zoripc::IPC;
using zoripc::TCP;

namespace {

constexpr int kLongMs = 60000;
constexpr std::chrono::milliseconds kLeastPause{50};

unsigned short portOf(const TCP& listener) {
  const std::string address = listener.localAddress();
  return static_cast<unsigned short>(std::stoi(address.substr(address.rfind(':') + 1)));
}

int option(int fd, int level, int name) {
  int value = -1;
  socklen_t length = sizeof value;
  getsockopt(fd, level, name, &value, &length);
  return value;
}

bool closesOnExec(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

// How many connections the system keeps for a listener at most.
int largestBacklog() {
  int most = 0;
  std::ifstream("/proc/sys/net/core/somaxconn") >> most;
  return std::min(most, SOMAXCONN);
}

// Accepts that have no descriptor left, each of which pauses, then one that has. Ends the process: 0 when all was as it
// must be.
void acceptWithoutDescriptors() {
  TCP listener;
  if (listener.listen(0, "127.0.0.1") == 0) std::_Exit(2);
  const RawSocket client = rawConnect(portOf(listener));
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none{0, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const auto begin = std::chrono::steady_clock::now();
  if (listener.accept(-1) != nullptr) std::_Exit(3);
  for (int i = 0; i < 3; ++i) {
    if (listener.accept(kLongMs) != nullptr) std::_Exit(4);
  }
  // At least so long: a busy machine makes it longer alone.
  if (std::chrono::steady_clock::now() - begin < 4 * kLeastPause) std::_Exit(6);
  setrlimit(RLIMIT_NOFILE, &limit);
  const std::unique_ptr<IPC> stream(listener.accept(kLongMs));
  std::_Exit(stream != nullptr ? 0 : 5);
}

}  // namespace

TEST(TcpListener, NullAddress_TakesIpv4AndIpv6) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0) << errno;
  for (const char* host : {"127.0.0.1", "::1"}) {
    TCP client;
    ASSERT_TRUE(client.connect(host, portOf(listener), kLongMs)) << host;
    const std::unique_ptr<IPC> server(listener.accept(kLongMs));
    ASSERT_NE(server, nullptr);
    EXPECT_TRUE(client.write("ping", 4));
    char byte = 0;
    EXPECT_FALSE(client.readExact(&byte, 1, 0));
    std::string text(4, '\0');
    EXPECT_TRUE(server->readExact(text.data(), 4, kLongMs));
    EXPECT_EQ(text, "ping");
  }
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
  EXPECT_EQ(listener.accept(0), nullptr);
  EXPECT_EQ(listener.accept(5), nullptr);
}

TEST(TcpListener, AcceptWithoutLimit_WaitsForAConnection) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  std::thread client([port = portOf(listener)] { rawConnect(port); });
  const std::unique_ptr<IPC> server(listener.accept(-1));
  EXPECT_NE(server, nullptr);
  client.join();
}

TEST(TcpListener, AcceptOnWhatDoesNotListen_Fails) {
  TCP nothing;
  EXPECT_EQ(nothing.accept(-1), nullptr);
}

TEST(TcpListener, ConnectionResetInTheQueue_DoesNotHurtTheNext) {
  TCP listener;
  ASSERT_NE(listener.listen(0, nullptr), 0);
  {
    const RawSocket hasty = rawConnect(portOf(listener));
    hasty.resetOnClose();
  }
  const RawSocket client = rawConnect(portOf(listener));
  client.send("x");
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

TEST(TcpListenerDeathTest, NoDescriptorLeft_GivesNullAfterAPauseAndLosesNothing) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(acceptWithoutDescriptors(), testing::ExitedWithCode(0), "");
}

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
  second.send("x");
  char byte = 0;
  EXPECT_TRUE(client.readExact(&byte, 1, kLongMs));
}
