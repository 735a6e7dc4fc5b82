// Where memory runs out in the middle of a connection: at each allocation of a request in turn.
#include <gtest/gtest.h>
#include <zoripc.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "tests/support/no_memory.h"
#include "tests/unit/upload/server.h"

namespace {

constexpr int kMoreThanAnyNeeds = 2000;

// What a connection leaves behind. Its text has its memory before the connection begins.
struct Wire {
  explicit Wire(std::string text) : input(std::move(text)) { written.reserve(std::size_t{64} * 1024); }

  std::string input;
  std::size_t at = 0;
  std::string written;
  int deletions = 0;
};

// A stream that needs no memory, as the library's does not.
class BareStream : public zoripc::IPC {
 public:
  explicit BareStream(Wire& wire) : wire_(wire) {}
  BareStream(const BareStream&) = delete;
  BareStream& operator=(const BareStream&) = delete;
  ~BareStream() override { ++wire_.deletions; }

  int getFD() const override { return -1; }
  bool readExact(void* data, std::size_t size, int /*timeoutMs*/, int /*gapTimeoutMs*/) override {
    return take(data, size) == size;
  }
  std::size_t read(void* data, std::size_t size, int /*timeoutMs*/) override { return take(data, size); }
  bool write(const void* data, std::size_t size) override {
    if (wire_.written.capacity() - wire_.written.size() < size) return false;
    wire_.written.append(static_cast<const char*>(data), size);
    return true;
  }
  bool closed() const override { return wire_.at == wire_.input.size(); }
  bool failed() const override { return false; }

 private:
  std::size_t take(void* data, std::size_t size) {
    const std::size_t count = std::min(size, wire_.input.size() - wire_.at);
    std::memcpy(data, wire_.input.data() + wire_.at, count);
    wire_.at += count;
    return count;
  }

  Wire& wire_;
};

bool isBeginning(const std::string& text, const std::string& of) { return of.compare(0, text.size(), text) == 0; }

class MemoryTest : public UploadTest {
 protected:
  void SetUp() override { installer.messages = {"Installed hello 1.0.0\n"}; }

  // Serves `request` with one more allocation that works each time, until none fails; `look` sees what each left.
  // Returns how often one failed.
  int failuresUntilNone(const std::string& request, const std::function<void(const Wire&)>& look) const {
    for (int count = 0; count < kMoreThanAnyNeeds; ++count) {
      clearDirectory();
      Wire wire(request);
      const bool failed = serveWith(count, wire);
      EXPECT_EQ(wire.deletions, 1) << count;
      if (!failed) return count;
      look(wire);
      expectServed();
    }
    return -1;
  }

  // True when an allocation failed.
  static bool serveWith(int count, Wire& wire) {
    auto* const stream = new BareStream(wire);
    auto* const server = new TestServer();
    server->setConnection(stream);
    noMemory::once(count);
    const int result = server->run();
    const bool failed = noMemory::met();
    noMemory::after(-1);
    EXPECT_EQ(result, 0);
    delete server;
    return failed;
  }

  // The next client is answered.
  static void expectServed() {
    Wire wire("GET / HTTP/1.1\r\n\r\n");
    EXPECT_FALSE(serveWith(kMoreThanAnyNeeds, wire));
    EXPECT_EQ(wire.written, kFormPage);
  }
};

TEST_F(MemoryTest, FormPage_IsAnsweredInPartAtMost) {
  const std::string page = kFormPage;
  const auto look = [&](const Wire& wire) { EXPECT_TRUE(isBeginning(wire.written, page)) << wire.written; };
  EXPECT_GT(failuresUntilNone("GET / HTTP/1.1\r\nHost: a terminal with a long name\r\n\r\n", look), 3);
}

TEST_F(MemoryTest, Upload_IsInstalledWholeOrLeavesNothing) {
  const std::string content = "content of more than a few bytes, so that it needs memory of its own";
  const std::string request = postForm(filePart("first") + "\r\n" + filePart(content) + "\r\n--b--\r\n");
  const Files files = {{"upload-0.zip", "first"}, {"upload-1.zip", content}};
  // A message of the installer that there is no memory for is lost alone.
  const std::string logged = resultPage("Upload successful<br>\nInstalled hello 1.0.0<br>");
  const std::string silent = resultPage("Upload successful<br>\n");
  int installed = 0;
  const auto look = [&](const Wire& wire) {
    EXPECT_EQ(stored(), installer.installations == 0 ? Files() : files);
    EXPECT_TRUE(isBeginning(wire.written, logged) || isBeginning(wire.written, silent)) << wire.written;
    EXPECT_TRUE(wire.written.empty() || installer.installations == 1);
    installed += installer.installations;
    installer.installations = 0;
  };
  EXPECT_GT(failuresUntilNone(request, look), 10);
  EXPECT_GT(installed, 1);
}

}  // namespace
