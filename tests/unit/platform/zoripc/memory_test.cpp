// Where memory runs out in the middle of an operation: each gives its failure result, and none throws.
#include <gtest/gtest.h>
#include <zoripc.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "tests/support/in_child.h"
#include "tests/support/no_memory.h"
#include "tests/unit/platform/zoripc/private_bus.h"
#include "tests/unit/platform/zoripc/sockets.h"

using zoripc::IPC;
using zoripc::JSObject;
using zoripc::TCP;

namespace {

constexpr int kLongMs = 60000;
constexpr int kMoreThanAnyNeeds = 300;
// Longer than what fits into a string itself.
constexpr const char* kLongLoopback = "0000:0000:0000:0000:0000:0000:0000:0001";
constexpr const char* kLongName = "a name that does not fit into the string itself";

void ignored(void* /*data*/, const std::string& /*sender*/, const std::string& /*receiver*/,
             const std::string& /*name*/, const JSObject& /*message*/, unsigned /*flags*/) {}

// Calls with one more allocation that works each time, until none fails; returns how often one did. `call` is true on
// success.
int failuresOf(const std::function<bool()>& call) {
  for (int count = 0; count < kMoreThanAnyNeeds; ++count) {
    noMemory::after(count);
    const bool done = call();
    const bool met = noMemory::met();
    noMemory::after(-1);
    EXPECT_EQ(done, !met) << "allocation " << count;
    if (!met) return count;
  }
  return -1;
}

}  // namespace

TEST(NoMemory, ObjectWithoutMemory_DoesNothing) {
  noMemory::after(0);
  TCP tcp;
  noMemory::after(-1);
  char byte = 0;
  errno = 0;
  EXPECT_EQ(tcp.listen(0, nullptr), 0);
  EXPECT_EQ(errno, ENOMEM);
  errno = 0;
  EXPECT_FALSE(tcp.connect("127.0.0.1", 1, 0));
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(tcp.accept(-1), nullptr);
  EXPECT_EQ(tcp.localAddress(), "");
  EXPECT_EQ(tcp.getFD(), -1);
  EXPECT_FALSE(tcp.readExact(&byte, 1, -1));
  EXPECT_EQ(tcp.read(&byte, 1, -1), 0U);
  EXPECT_FALSE(tcp.write(&byte, 1));
  EXPECT_FALSE(tcp.closed());
  EXPECT_TRUE(tcp.failed());
}

TEST(NoMemory, EndpointsAndConnections_FailOrHaveTheirWay) {
  TCP listener;
  EXPECT_GT(failuresOf([&] { return listener.listen(0, kLongLoopback) != 0 || errno != ENOMEM; }), 0);
  const unsigned short port = portOf(listener);
  TCP client;
  EXPECT_GT(failuresOf([&] { return client.connect(kLongLoopback, port, kLongMs) || errno != ENOMEM; }), 0);
  TCP other;
  ASSERT_NE(other.listen(0, "127.100.100.100"), 0);
  EXPECT_GT(failuresOf([&] { return !other.localAddress().empty(); }), 0);
}

TEST(NoMemory, Accept_DropsTheConnectionAlone) {
  TCP listener;
  ASSERT_NE(listener.listen(0, "127.0.0.1"), 0);
  const unsigned short port = portOf(listener);
  EXPECT_GT(failuresOf([&] {
              const RawSocket client = rawConnect(port);
              const std::unique_ptr<IPC> server(listener.accept(kLongMs));
              return server != nullptr;
            }),
            1);
}

TEST(NoMemory, Notifications_GiveTheirFailure) {
  const PrivateBus bus;
  setenv("JXPLATFORM_BUS", bus.address().c_str(), 1);
  inChild([] {
    // The first use makes the library's own objects.
    EXPECT_GT(failuresOf([] { return zoripc::ipcRegisterUnicastError(ignored, nullptr) == 0; }), 0);
    EXPECT_GT(failuresOf([] { return zoripc::ipcRegisterNotificationCB(kLongName, ignored, nullptr, 0, "") == 0; }), 0);
    const JSObject message(kLongName);
    EXPECT_GT(failuresOf([&] { return zoripc::ipcNotify(kLongName, kLongName, message, 0, "x") == 0; }), 3);
    noMemory::after(0);
    zoripc::ipcSetAppID(kLongName);
    noMemory::after(-1);
    zoripc::ipcSetAppID(kLongName);
    return "";
  });
}
