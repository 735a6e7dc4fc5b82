// A file that cannot be written any more in the middle of its part.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <string>
#include <utility>

#include "tests/unit/upload/server.h"

namespace {

// The file is a pipe whose reader is gone for one stretch of the body: what is written then fails, what would be
// written later could be read again.
class FailingPipe : public UploadTest {
 protected:
  static constexpr std::size_t kGoneFrom = 8192;  // bytes of the body
  static constexpr std::size_t kBackFrom = 300000;

  // Feeds the receiver the body itself.
  class Server : public TestServer {
   public:
    Server(FailingPipe& test, std::string body) : test_(test), body_(std::move(body)) {}
    using TestServer::readBody;
    int readBody(void* data, int length) override {
      const std::size_t count = body_.copy(static_cast<char*>(data), static_cast<std::size_t>(length), taken_);
      const std::size_t before = taken_;
      taken_ += count;
      if (before < kGoneFrom && taken_ >= kGoneFrom) test_.closeReader();
      if (before < kBackFrom && taken_ >= kBackFrom) test_.openReader();
      return static_cast<int>(count);
    }
    bool drained() const { return taken_ == body_.size(); }

   private:
    FailingPipe& test_;
    std::string body_;
    std::size_t taken_ = 0;
  };

  void SetUp() override {
    oldHandler_ = std::signal(SIGPIPE, SIG_IGN);
    ASSERT_EQ(mkfifo(path("upload-0.zip").c_str(), 0600), 0);
    node_ = open(path("upload-0.zip").c_str(), O_PATH | O_CLOEXEC);
    openReader();
  }
  void TearDown() override {
    closeReader();
    close(node_);
    std::signal(SIGPIPE, oldHandler_);
    UploadTest::TearDown();
  }

  // Also when the pipe has lost its name.
  void openReader() {
    reader_ = open(("/proc/self/fd/" + std::to_string(node_)).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_GE(reader_, 0);
  }
  void closeReader() {
    if (reader_ >= 0) close(reader_);
    reader_ = -1;
  }
  // What was written since the reader is back.
  std::string written() const {
    std::string bytes;
    char block[4096];
    for (ssize_t got = 0; (got = read(reader_, block, sizeof block)) > 0;) {
      bytes.append(block, static_cast<std::size_t>(got));
    }
    return bytes;
  }

 private:
  int node_ = -1;  // the pipe, neither read nor written
  int reader_ = -1;
  void (*oldHandler_)(int) = SIG_DFL;
};

TEST_F(FailingPipe, NothingMoreOfThePart_IsWritten) {
  Server server(*this, filePart(std::string(330000, 'x')) + "\r\n" + filePart("next") + "\r\n--b--\r\n");
  server.headers["content-type"] = "multipart/form-data; boundary=b";
  EXPECT_FALSE(server.receiveMultipart("upload", path("upload.zip"), true));
  EXPECT_TRUE(server.drained());
  EXPECT_EQ(written(), "");
  EXPECT_EQ(stored(), Files());
}

}  // namespace
