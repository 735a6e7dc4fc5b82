#include "upload/terminal_addresses.h"

#include <gtest/gtest.h>
#include <net/if.h>

#include <string>
#include <vector>

#include "tests/unit/upload/fake_network.h"

namespace {

constexpr unsigned kRunning = IFF_UP | IFF_RUNNING;

class TerminalAddressesTest : public testing::Test {
 protected:
  TerminalAddressesTest() { network.reset(); }

  AddressList found() {
    AddressList addresses{{"left", "over"}};
    findTerminalAddresses(addresses);
    return addresses;
  }

  FakeNetwork& network = FakeNetwork::instance();
};

TEST_F(TerminalAddressesTest, Failure_IsAnEmptyList) {
  network.add("eth0", "192.168.1.20", kRunning);
  network.failInterfaces = true;
  EXPECT_EQ(found(), AddressList());
}

TEST_F(TerminalAddressesTest, NoInterfaces_IsAnEmptyList) { EXPECT_EQ(found(), AddressList()); }

TEST_F(TerminalAddressesTest, BothFamilies_AreListed) {
  network.add("eth0", "192.168.1.20", kRunning);
  network.add("eth0", "2001:db8::1", kRunning);
  EXPECT_EQ(found(), (AddressList{{"eth0", "192.168.1.20"}, {"eth0", "2001:db8::1"}}));
}

TEST_F(TerminalAddressesTest, Order_IsTheSystems) {
  network.add("wlan0", "10.0.0.2", kRunning);
  network.add("eth0", "2001:db8::9", kRunning);
  network.add("eth0", "10.0.0.1", kRunning);
  network.add("wlan0", "10.0.0.2", kRunning);
  EXPECT_EQ(found(),
            (AddressList{{"wlan0", "10.0.0.2"}, {"eth0", "2001:db8::9"}, {"eth0", "10.0.0.1"}, {"wlan0", "10.0.0.2"}}));
}

TEST_F(TerminalAddressesTest, EntriesWithoutAnInternetAddress_AreSkipped) {
  network.add("tun0", "", kRunning);
  network.add("eth0", "packet", kRunning);
  network.add("eth0", "10.0.0.1", kRunning);
  EXPECT_EQ(found(), (AddressList{{"eth0", "10.0.0.1"}}));
}

TEST_F(TerminalAddressesTest, InterfacesThatDoNotRun_AreSkipped) {
  network.add("eth0", "10.0.0.1", IFF_UP);
  network.add("eth1", "10.0.0.2", 0);
  network.add("eth2", "10.0.0.3", IFF_RUNNING);
  EXPECT_EQ(found(), (AddressList{{"eth2", "10.0.0.3"}}));
}

TEST_F(TerminalAddressesTest, LoopbackAndLinkLocal_AreSkippedByTheirText) {
  network.add("lo", "127.0.0.1", kRunning | IFF_LOOPBACK);
  network.add("lo", "::1", kRunning | IFF_LOOPBACK);
  network.add("eth0", "fe80::1", kRunning);
  network.add("eth0", "fe80::1%1", kRunning);
  network.add("eth0", "fe80:1::1", kRunning);
  EXPECT_EQ(found(), AddressList());
}

TEST_F(TerminalAddressesTest, TextsNearTheSkippedOnes_AreListed) {
  const std::vector<std::string> near = {"127.0.0.2", "127.0.0.11", "10.127.0.1",  "169.254.1.1",
                                         "::2",       "::1:2:3",    "1::1",        "fe81::1",
                                         "fe8:1::1",  "fe90::1",    "2001:fe80::1"};
  AddressList expected;
  for (const std::string& address : near) {
    network.add("eth0", address, kRunning);
    expected.emplace_back("eth0", address);
  }
  EXPECT_EQ(found(), expected);
}

TEST_F(TerminalAddressesTest, Zone_IsCut) {
  network.add("eth0", "2001:db8::1%1", kRunning);
  EXPECT_EQ(found(), (AddressList{{"eth0", "2001:db8::1"}}));
}

TEST_F(TerminalAddressesTest, FailedConversion_IsSkipped) {
  network.add("eth0", "10.0.0.1", kRunning);
  network.add("eth1", "10.0.0.2", kRunning);
  network.failNames = {"10.0.0.1"};
  EXPECT_EQ(found(), (AddressList{{"eth1", "10.0.0.2"}}));
}

TEST_F(TerminalAddressesTest, List_IsFreed) {
  network.add("eth0", "10.0.0.1", kRunning);
  found();
  found();
  EXPECT_EQ(network.lists, 2);
  EXPECT_EQ(network.openLists, 0);
}

}  // namespace
