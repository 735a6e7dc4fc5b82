#include "platform/linux/services/cloudproxyd/gateway_check.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <future>
#include <memory>

#include "base/descriptor.h"

// The linker sends the waiting and the clock here (--wrap); the names are its convention.
extern "C" {
int __real_poll(pollfd* entries, nfds_t count, int timeoutMs);
int __real_clock_gettime(clockid_t clock, timespec* now);
}

namespace {

// Where nothing is ready a wait is over at once, and the clock shows its end.
std::atomic<bool> isTimeDriven{false};
std::atomic<long long> passedMs{0};

}  // namespace

extern "C" int __wrap_poll(pollfd* entries, nfds_t count, int timeoutMs) {
  if (!isTimeDriven) return __real_poll(entries, count, timeoutMs);
  const int ready = __real_poll(entries, count, 0);
  if (ready == 0) passedMs += timeoutMs;
  return ready;
}

extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* now) {
  if (!isTimeDriven || clock != CLOCK_MONOTONIC) return __real_clock_gettime(clock, now);
  *now = {static_cast<time_t>(passedMs / 1000), static_cast<long>(passedMs % 1000 * 1000000)};
  return 0;
}

namespace cloudproxyd {
namespace {

constexpr int kLongMs = 60000;

// Takes connections, and never says a word.
class SilentGateway {
 public:
  SilentGateway() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(bind(listener_.get(), plain, size), 0);
    EXPECT_EQ(listen(listener_.get(), 8), 0);
    EXPECT_EQ(getsockname(listener_.get(), plain, &size), 0);
    port_ = ntohs(address.sin_port);
  }

  Gateway address() const { return {"127.0.0.1", port_, ""}; }

  // Waits for a connection and for what it brings first.
  base::Descriptor takeUp() const {
    base::Descriptor connection(accept(listener_.get(), nullptr, nullptr));
    char first = 0;
    EXPECT_EQ(recv(connection.get(), &first, 1, MSG_PEEK), 1);
    return connection;
  }

 private:
  base::Descriptor listener_;
  int port_ = 0;
};

class GatewayCheckerTest : public testing::Test {
 protected:
  ~GatewayCheckerTest() override { isTimeDriven = false; }

  // Begins a check whose answer can be waited for; none when it was refused.
  static std::future<GatewayAnswer> begin(GatewayChecker& checker) {
    const auto promise = std::make_shared<std::promise<GatewayAnswer>>();
    const bool started = checker.start([promise](const GatewayAnswer& answer) { promise->set_value(answer); });
    return started ? promise->get_future() : std::future<GatewayAnswer>();
  }

  SilentGateway gateway_;
};

TEST_F(GatewayCheckerTest, SilentGateway_IsGivenUpAfterEightSeconds) {
  isTimeDriven = true;
  passedMs = 0;
  GatewayChecker checker(gateway_.address());
  const GatewayAnswer answer = begin(checker).get();
  EXPECT_EQ(passedMs, 8000);
  EXPECT_FALSE(answer.answered);
  EXPECT_EQ(answer.code, 13);
  EXPECT_EQ(answer.reason, "no answer in time");
  EXPECT_TRUE(checker.finish(kLongMs));
}

TEST_F(GatewayCheckerTest, Finish_BreaksChecksOffAndLetsNoneBegin) {
  GatewayChecker checker(gateway_.address(), -1);
  std::future<GatewayAnswer> answer = begin(checker);
  const base::Descriptor connection = gateway_.takeUp();
  EXPECT_TRUE(checker.finish(kLongMs));
  EXPECT_EQ(answer.get().code, 7);
  EXPECT_FALSE(begin(checker).valid());
}

TEST_F(GatewayCheckerTest, FifthCheckAtOnce_IsRefused) {
  GatewayChecker checker(gateway_.address(), -1);
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(checker.start([released](const GatewayAnswer& /*answer*/) { released.wait(); }));
  }
  EXPECT_FALSE(begin(checker).valid());
  EXPECT_FALSE(checker.finish(0));
  release.set_value();
  EXPECT_TRUE(checker.finish(kLongMs));
}

TEST_F(GatewayCheckerTest, ChecksThatHaveEnded_MakeRoom) {
  isTimeDriven = true;
  GatewayChecker checker(gateway_.address());
  for (int i = 0; i < 9; ++i) {
    std::future<GatewayAnswer> answer = begin(checker);
    // What was answered may not have gone yet.
    while (!answer.valid()) answer = begin(checker);
    EXPECT_EQ(answer.get().code, 13);
  }
  EXPECT_TRUE(checker.finish(kLongMs));
}

}  // namespace
}  // namespace cloudproxyd
