// A zoripc::TCP without sockets: takes the library's place in this program.
#pragma once

#include <zoripc.h>

#include <deque>
#include <string>
#include <vector>

// What the next endpoints do, and what was asked of them.
struct FakeTcp {
  static FakeTcp& instance();
  void reset() { *this = FakeTcp(); }

  int listenResult = 1;
  std::string localAddress;
  std::deque<zoripc::IPC*> accepts;  // null: a failed accept

  int created = 0;
  int deleted = 0;
  std::vector<unsigned short> ports;
  bool nullAddress = true;  // at each listen
  std::vector<int> acceptTimeouts;

  static constexpr int kDescriptor = 1234;
};
