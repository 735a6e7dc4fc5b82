// The server and its connections where the system has no thread or no memory left.
#include "platform/linux/zorguiprt/http_server.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "base/ignore.h"
#include "platform/linux/support/failure.h"
#include "platform/linux/zorguiprt/connection_threads.h"
#include "tests/support/no_memory.h"
#include "tests/unit/platform/zorguiprt/no_threads.h"
#include "tests/unit/platform/zorguiprt/plain_client.h"

using jxplatform::Answer;
using jxplatform::ConnectionThreads;
using jxplatform::HttpServer;
using jxplatform::Request;
using jxplatform::ServerAddress;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds kLong{60'000};
constexpr int kMoreThanAnyNeeds = 3000;
constexpr int kForEver = -1;

// The errors with which the next connections are not accepted, the last one first; after kForEver there is no other.
std::mutex refusalsMutex;
std::vector<int> refusals;

int nextRefusal() {
  const std::lock_guard<std::mutex> lock(refusalsMutex);
  if (refusals.empty()) return 0;
  const int error = refusals.back();
  if (error == kForEver) return ENFILE;
  refusals.pop_back();
  return error;
}

void refuseWith(std::vector<int> errors) {
  const std::lock_guard<std::mutex> lock(refusalsMutex);
  refusals = std::move(errors);
}

std::size_t refusalsLeft() {
  const std::lock_guard<std::mutex> lock(refusalsMutex);
  return refusals.size();
}

const std::string kRequest = "GET / HTTP/1.1\r\nHost: x\r\n\r\n";

class HttpServerTest : public testing::Test {
 protected:
  HttpServerTest() { address.port = server.listen(address); }

  ~HttpServerTest() override {
    server.end();
    if (acceptor.joinable()) acceptor.join();
    EXPECT_TRUE(threads.finish(kLong));
    refuseWith({});
  }

  void begin() {
    acceptor = std::thread([this] { server.serve(threads); });
  }

  [[nodiscard]] std::string answer() const { return answerOf(address.port, kRequest); }

  std::function<void()> beforeTheAnswer = [] {};
  ConnectionThreads threads;
  HttpServer server{[this](const Request&) {
    beforeTheAnswer();
    return Answer{200, "text/plain", "hello", ""};
  }};
  ServerAddress address{"127.0.0.1", 0};
  std::thread acceptor;
};

}  // namespace

// Called by every library in place of the system's, because the program comes first. The system's header has reserved
// names. NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int accept4(int listener, sockaddr* address, socklen_t* length, int flags) {
  using Accept = int (*)(int, sockaddr*, socklen_t*, int);
  static const auto accept = reinterpret_cast<Accept>(dlsym(RTLD_NEXT, "accept4"));
  const int error = nextRefusal();
  if (error == 0) return accept(listener, address, length, flags);
  errno = error;
  return -1;
}

TEST_F(HttpServerTest, NoMemoryForAnAnswer_TheConnectionIsClosed) {
  int silent = 0;
  int allowed = 0;
  for (bool answered = false; !answered && allowed < kMoreThanAnyNeeds; ++allowed) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ASSERT_EQ(send(ends[0], kRequest.data(), kRequest.size(), 0), static_cast<ssize_t>(kRequest.size()));
    shutdown(ends[0], SHUT_WR);
    noMemory::after(allowed);
    server.answer(ends[1]);
    noMemory::after(-1);
    const std::string answer = readAll(ends[0]);
    if (answer.empty()) ++silent;
    answered = answer.find("\r\n\r\nhello") != std::string::npos;
  }
  EXPECT_GT(silent, 0);
  EXPECT_LT(allowed, kMoreThanAnyNeeds);
}

TEST_F(HttpServerTest, NoMeansForAConnection_ItIsServedLater) {
  refuseWith({EMFILE, ENFILE, ENOBUFS, ENOMEM, EPERM, ECONNABORTED, EINTR});
  begin();
  EXPECT_NE(answer().find("\r\n\r\nhello"), std::string::npos);
  EXPECT_EQ(refusalsLeft(), 0U);
}

TEST_F(HttpServerTest, NoMeansForAConnectionAnyMore_EndsAllTheSame) {
  refuseWith({kForEver, ECONNABORTED});
  begin();
  while (refusalsLeft() > 1) std::this_thread::yield();
  server.end();
  acceptor.join();
}

TEST_F(HttpServerTest, EndedBeforeItBegan_ServesNobody) {
  server.end();
  server.serve(threads);
}

TEST_F(HttpServerTest, ThreadsFinished_ConnectionIsClosed) {
  EXPECT_TRUE(threads.finish(milliseconds(0)));
  begin();
  EXPECT_EQ(answer(), "");
}

TEST_F(HttpServerTest, BrokenOff_ConnectionUnderWayGetsNoAnswer) {
  std::promise<void> asked;
  std::promise<void> brokenOff;
  beforeTheAnswer = [&] {
    asked.set_value();
    brokenOff.get_future().wait();
  };
  begin();
  auto received = std::async(std::launch::async, [this] { return answer(); });
  asked.get_future().wait();
  server.breakOff();
  brokenOff.set_value();
  EXPECT_EQ(received.get(), "");
  EXPECT_TRUE(threads.finish(kLong));  // the promises are the handler's until then
}

TEST_F(HttpServerTest, BrokenOff_ConnectionThatComesAfterwardsGetsNoAnswer) {
  begin();
  EXPECT_NE(answer().find("\r\n\r\nhello"), std::string::npos);
  server.breakOff();
  EXPECT_EQ(answer(), "");
}

TEST_F(HttpServerTest, HandlerThatThrows_IsAnswered500) {
  beforeTheAnswer = [] { throw std::bad_alloc(); };
  begin();
  EXPECT_EQ(answer().compare(0, 13, "HTTP/1.1 500 "), 0);
}

TEST_F(HttpServerTest, ClientThatSentMoreThanWasRead_SeesTheEndAndNoReset) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const std::string endless = "GET /" + std::string(40'000, 'a');
  ASSERT_EQ(send(ends[0], endless.data(), endless.size(), 0), static_cast<ssize_t>(endless.size()));
  shutdown(ends[0], SHUT_WR);
  server.answer(ends[1]);
  char answer[4096];
  const ssize_t size = recv(ends[0], answer, sizeof answer, 0);
  EXPECT_EQ(std::string(answer, static_cast<std::size_t>(std::max<ssize_t>(size, 0))).compare(0, 13, "HTTP/1.1 431 "),
            0);
  EXPECT_EQ(recv(ends[0], answer, sizeof answer, 0), 0) << std::strerror(errno);
  close(ends[0]);
}

TEST(HttpServer, PortInUse_IsToldAndFreeOnceItsServerIsGone) {
  const auto handler = [](const Request&) { return Answer(); };
  ServerAddress address{"127.0.0.1", 0};
  auto server = std::make_unique<HttpServer>(handler);
  address.port = server->listen(address);
  try {
    base::ignore(HttpServer(handler).listen(address));
    FAIL() << "two servers listen at one port";
  } catch (const jxplatform::Failure& failure) {
    EXPECT_STREQ(failure.what(), "Address already in use");
  }
  server.reset();
  EXPECT_EQ(HttpServer(handler).listen(address), address.port);
}

TEST(ConnectionThreads, ConnectionThatThrows_LeavesItsPlace) {
  ConnectionThreads threads;
  std::atomic<int> begun{0};
  const auto connection = [&] {
    ++begun;
    throw std::bad_alloc();
  };
  const int many = static_cast<int>(2 * ConnectionThreads::kMostConnections);
  for (int i = 0; i < many; ++i) EXPECT_TRUE(threads.run(connection));
  EXPECT_TRUE(threads.finish(kLong));
  EXPECT_EQ(begun, many);
}

TEST(ConnectionThreads, ConnectionThatGoesOn_IsWaitedForInTheEnd) {
  ConnectionThreads threads;
  std::promise<void> release;
  std::atomic<bool> ended{false};
  EXPECT_TRUE(threads.run([&] {
    release.get_future().wait();
    ended = true;
  }));
  EXPECT_FALSE(threads.finish(milliseconds(0)));
  EXPECT_FALSE(ended);
  release.set_value();
  threads.join();
  EXPECT_TRUE(ended);
}

TEST(ConnectionThreads, NoThreadToBeHad_RunsOnTheCallers) {
  ConnectionThreads threads;
  std::thread::id ran;
  {
    const NoThreads shortage;
    EXPECT_TRUE(threads.run([&] { ran = std::this_thread::get_id(); }));
  }
  EXPECT_EQ(ran, std::this_thread::get_id());
  EXPECT_TRUE(threads.finish(milliseconds(0)));
}

TEST(ConnectionThreads, NoMemoryForAThread_RunsOnTheCallers) {
  ConnectionThreads threads;
  int served = 0;
  int onCallers = 0;
  for (bool met = true; met && served < kMoreThanAnyNeeds;) {
    std::promise<std::thread::id> ran;
    std::function<void()> connection = [&] { ran.set_value(std::this_thread::get_id()); };
    noMemory::after(served);
    const bool isRun = threads.run(std::move(connection));
    met = noMemory::met();
    noMemory::after(-1);
    EXPECT_TRUE(isRun);
    ++served;
    onCallers += ran.get_future().get() == std::this_thread::get_id();
  }
  EXPECT_GT(onCallers, 0);
  EXPECT_LT(onCallers, served);
  EXPECT_TRUE(threads.finish(kLong));
}
