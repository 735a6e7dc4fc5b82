#include "tests/unit/http/fake_tcp.h"

#include "tests/support/no_memory.h"

FakeTcp& FakeTcp::instance() {
  static FakeTcp fake;
  return fake;
}

namespace zoripc {

class TCP::Impl {};

TCP::TCP() { ++FakeTcp::instance().created; }
TCP::~TCP() { ++FakeTcp::instance().deleted; }

int TCP::listen(unsigned short port, const char* address) {
  const noMemory::Exempt own;
  FakeTcp::instance().ports.push_back(port);
  FakeTcp::instance().nullAddress = FakeTcp::instance().nullAddress && address == nullptr;
  return FakeTcp::instance().listenResult;
}

IPC* TCP::accept(int timeoutMs) {
  const noMemory::Exempt own;
  FakeTcp& fake = FakeTcp::instance();
  fake.acceptTimeouts.push_back(timeoutMs);
  if (fake.accepts.empty()) return nullptr;
  IPC* stream = fake.accepts.front();
  fake.accepts.pop_front();
  return stream;
}

std::string TCP::localAddress() const { return FakeTcp::instance().localAddress; }
int TCP::getFD() const { return FakeTcp::kDescriptor; }

// An endpoint carries no bytes.
bool TCP::readExact(void*, std::size_t, int, int) { return false; }
std::size_t TCP::read(void*, std::size_t, int) { return 0; }
bool TCP::write(const void*, std::size_t) { return false; }
bool TCP::closed() const { return false; }
bool TCP::failed() const { return false; }

}  // namespace zoripc
