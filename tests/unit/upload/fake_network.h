// Stands between the address finder and the system: getifaddrs, getnameinfo, sleep.
#pragma once

#include <string>
#include <vector>

class FakeNetwork {
 public:
  static FakeNetwork& instance();

  // Back to: no interfaces, everything works.
  void reset();

  // Appends an entry as getifaddrs would give it; an empty address stands for none, "packet" for another family.
  void add(const std::string& interface, const std::string& address, unsigned flags);

  bool failInterfaces = false;
  std::vector<std::string> failNames;  // addresses that cannot be converted
  int appearsAfterSleeps = 0;          // until then there are no interfaces

  std::vector<unsigned> sleeps;
  int lists = 0;      // made by getifaddrs
  int openLists = 0;  // of them, not freed

  struct Entry {
    std::string interface;
    std::string address;
    unsigned flags;
  };
  std::vector<Entry> entries;
};
