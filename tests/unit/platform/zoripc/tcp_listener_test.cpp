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

#include "tests/unit/platform/zoripc/sockets.h"

using zoripc::IPC;
using zoripc::TCP;

namespace {

constexpr int kLongMs = 60000;
constexpr std::chrono::milliseconds kLeastPause{50};

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
