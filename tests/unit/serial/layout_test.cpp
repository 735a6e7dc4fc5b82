// The interface as the Itanium C++ ABI lays it out: fields and virtual operations in their order.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/serial/open_receiver.h"

namespace {

struct ReceiverLayout {
  void** slots;
  void* system;
  std::int32_t fd;
  unsigned char abortFlag;
};

class Recorder : public Tessolan::System {
 public:
  explicit Recorder(std::vector<std::string>& record) : record_(record) {}
  ~Recorder() override { record_.emplace_back("destroyed"); }
  bool openFile(const char* name) override { return note("openFile", name); }
  bool writeBlock(std::uint32_t offset, const unsigned char* data, std::uint32_t length) override {
    return note("writeBlock", std::to_string(offset) + std::string(reinterpret_cast<const char*>(data), length));
  }
  bool closeFile() override { return note("closeFile", ""); }
  bool recordR(const char* text) override { return note("recordR", text); }
  bool showMessage(const char* text) override { return note("showMessage", text); }
  bool recordS() override { return note("recordS", ""); }
  bool recordU() override { return note("recordU", ""); }

 private:
  bool note(const char* what, const std::string& text) {
    record_.push_back(what + text);
    return true;
  }
  std::vector<std::string>& record_;
};

template <typename Function>
Function slot(void* object, int number) {
  void** const slots = *static_cast<void***>(object);
  Function function;
  std::memcpy(&function, &slots[number - 1], sizeof function);
  return function;
}

}  // namespace

TEST(Layout, Receiver_HoldsSystemDescriptorAndAbortFlagInThisOrder) {
  std::vector<std::string> record;
  Recorder recorder(record);
  OpenReceiver receiver(&recorder);
  receiver.abortFlag = 0x5A;
  ReceiverLayout layout{};
  static_assert(sizeof layout == sizeof(Tessolan), "nothing else in it");
  std::memcpy(&layout, static_cast<void*>(&receiver), sizeof layout);
  EXPECT_EQ(static_cast<Tessolan::System*>(&recorder), layout.system);
  EXPECT_EQ(-1, layout.fd);
  EXPECT_EQ(0x5A, layout.abortFlag);
}

TEST(Layout, NewReceiver_IsClosedAndNotAborted) {
  const OpenReceiver receiver;
  EXPECT_EQ(-1, receiver.fd);
  EXPECT_EQ(0, receiver.abortFlag);
  EXPECT_EQ(nullptr, receiver.system);
}

TEST(Layout, ReceiverThatIsGone_LeavesItsDescriptorOpen) {
  const int device = dup(STDERR_FILENO);
  {
    OpenReceiver receiver;
    receiver.fd = device;
  }
  EXPECT_EQ(0, close(device));
}

TEST(Layout, AbortFlag_IsOneByteWithoutALock) {
  EXPECT_EQ(1U, sizeof(std::atomic<unsigned char>));
  EXPECT_TRUE(std::atomic<unsigned char>{}.is_lock_free());
}

TEST(Layout, SystemSlots_HaveTheirOrder) {
  std::vector<std::string> record;
  auto* const recorder = new Recorder(record);
  void* const object = static_cast<Tessolan::System*>(recorder);
  using Text = bool (*)(void*, const char*);
  using Block = bool (*)(void*, std::uint32_t, const unsigned char*, std::uint32_t);
  using Signal = bool (*)(void*);
  EXPECT_TRUE(slot<Text>(object, 3)(object, ":name"));
  EXPECT_TRUE(slot<Block>(object, 4)(object, 7, reinterpret_cast<const unsigned char*>("data"), 4));
  EXPECT_TRUE(slot<Signal>(object, 5)(object));
  EXPECT_TRUE(slot<Text>(object, 6)(object, ":r"));
  EXPECT_TRUE(slot<Text>(object, 7)(object, ":m"));
  EXPECT_TRUE(slot<Signal>(object, 8)(object));
  EXPECT_TRUE(slot<Signal>(object, 9)(object));
  slot<void (*)(void*)>(object, 2)(object);  // the deleting destructor: a leak would show under the sanitizer
  EXPECT_EQ((std::vector<std::string>{"openFile:name", "writeBlock7data", "closeFile", "recordR:r", "showMessage:m",
                                      "recordS", "recordU", "destroyed"}),
            record);
}

TEST(Layout, ReceiverSlots_AreItsTwoDestructors) {
  // The complete destructor leaves the memory to its owner, the deleting one frees it.
  alignas(Tessolan) unsigned char place[sizeof(Tessolan)];
  auto* const inPlace = new (place) Tessolan(nullptr);
  slot<void (*)(void*)>(inPlace, 1)(inPlace);
  auto* const onHeap = new Tessolan(nullptr);
  slot<void (*)(void*)>(onHeap, 2)(onHeap);
  EXPECT_TRUE(std::has_virtual_destructor_v<Tessolan>);
}
