// What a download allocates, counted where all of the program's allocations come by.
#include <gtest/gtest.h>

#include <cstddef>
#include <thread>

#include "base/ignore.h"
#include "tests/unit/serial/calls.h"
#include "tests/unit/serial/download.h"

namespace {

thread_local bool counting = false;
thread_local unsigned long allocations = 0;

}  // namespace

extern "C" {
void* __libc_malloc(std::size_t size);
void* malloc(std::size_t size) {
  if (counting) ++allocations;
  return __libc_malloc(size);
}
}

namespace {

// Takes everything, and counts the allocations from the first block to the last.
class Counter : public Tessolan::System {
 public:
  bool openFile(const char* /*name*/) override { return true; }
  bool writeBlock(std::uint32_t /*offset*/, const unsigned char* /*data*/, std::uint32_t length) override {
    counting = true;
    bytes += length;
    return true;
  }
  bool closeFile() override {
    counting = false;
    counted = allocations;
    return true;
  }
  bool recordR(const char* /*text*/) override { return true; }
  bool showMessage(const char* /*text*/) override { return true; }
  bool recordS() override { return true; }
  bool recordU() override { return true; }

  unsigned long bytes = 0;
  unsigned long counted = 99;
};

}  // namespace

TEST(Memory, CounterOfThisTest_SeesAnAllocation) {
  const unsigned long before = allocations;
  counting = true;
  const std::string text(1000, 'x');
  counting = false;
  EXPECT_EQ(before + 1, allocations);
  EXPECT_EQ(1000U, text.size());
}

TEST(Memory, Records_AreReceivedWithoutAnAllocation) {
  const PtyPair line;
  Counter counter;
  OpenReceiver receiver(&counter);
  std::thread terminal;
  untilReady([&] {
    terminal = std::thread([&] {
      Calls::thisThreadReceives();
      base::ignore(receiver.receive(line.path().c_str()));
    });
  });
  const auto exchange = [&](const std::string& record) {
    line.send(record);
    return line.receive(1);
  };
  EXPECT_EQ("\x06", exchange(openRecord("a")));
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ("\x06", exchange(dataRecord(0, std::string(1024, 'x'))));
    EXPECT_EQ("\x06", exchange(textRecord('M', "half")));
  }
  EXPECT_EQ("\x06", exchange(signalRecord('C')));
  EXPECT_EQ("\x04", exchange("\x04"));
  terminal.join();
  EXPECT_EQ(200U * 1024, counter.bytes);
  EXPECT_EQ(0U, counter.counted);
}
