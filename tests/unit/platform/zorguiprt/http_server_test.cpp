// The server and its connections where the system has no thread or no memory left.
#include "platform/linux/zorguiprt/http_server.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <future>
#include <new>
#include <thread>

#include "platform/linux/zorguiprt/connection_threads.h"
#include "tests/support/no_memory.h"
#include "tests/unit/platform/zorguiprt/no_threads.h"

using jxplatform::ConnectionThreads;
using jxplatform::HttpServer;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds kLong{60'000};
constexpr int kMoreThanAnyNeeds = 3000;

// Runs each connection on the acceptor's thread as it is told.
class InlineQueue : public httplib::TaskQueue {
 public:
  using Run = std::function<void(const std::function<void()>&)>;
  explicit InlineQueue(Run run) : run_(std::move(run)) {}
  void enqueue(std::function<void()> connection) override { run_(connection); }
  void shutdown() override {}

 private:
  Run run_;
};

// What the server answers to one request, to the end of the connection.
std::string answerOf(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const timeval patience{60, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << std::strerror(errno);
  const std::string request = "GET / HTTP/1.1\r\nHost: x\r\n\r\n";
  EXPECT_EQ(send(fd, request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
  errno = 0;
  std::string answer;
  char block[4096];
  for (ssize_t count = 1; count > 0;) {
    count = recv(fd, block, sizeof block, 0);
    if (count > 0) answer.append(block, static_cast<std::size_t>(count));
  }
  EXPECT_NE(errno, EAGAIN) << "the connection is not closed";
  close(fd);
  return answer;
}

class HttpServerTest : public testing::Test {
 protected:
  HttpServerTest() {
    server.Get(
        "/", [](const httplib::Request&, httplib::Response& response) { response.set_content("hello", "text/plain"); });
    port = server.bind_to_any_port("127.0.0.1");
  }

  ~HttpServerTest() override {
    server.end();
    if (acceptor.joinable()) acceptor.join();
  }

  void begin() {
    acceptor = std::thread([this] { server.serve(); });
  }

  HttpServer server;
  std::thread acceptor;
  int port = 0;
};

}  // namespace

TEST_F(HttpServerTest, NoMemoryForAConnection_ItIsClosedAndTheNextIsServed) {
  std::atomic<int> allowed{0};
  std::atomic<int> thrown{0};
  server.new_task_queue = [&] {
    return new InlineQueue([&](const std::function<void()>& connection) {
      try {
        noMemory::after(allowed);
        connection();
      } catch (const std::bad_alloc&) {
        ++thrown;
      }
      noMemory::after(-1);
    });
  };
  begin();
  int silent = 0;
  for (; allowed < kMoreThanAnyNeeds && thrown == 0; ++allowed) {
    const std::string answer = answerOf(port);
    if (answer.empty()) ++silent;
    if (answer.find("\r\n\r\nhello") != std::string::npos) break;
  }
  EXPECT_EQ(thrown, 0);
  EXPECT_GT(silent, 0);
  EXPECT_LT(allowed, kMoreThanAnyNeeds);
}

TEST_F(HttpServerTest, NoMemoryToBeginWith_ItBeginsLater) {
  std::atomic<int> calls{0};
  server.new_task_queue = [&]() -> httplib::TaskQueue* {
    if (++calls < 3) throw std::bad_alloc();
    return new InlineQueue([](const std::function<void()>& connection) { connection(); });
  };
  begin();
  EXPECT_NE(answerOf(port).find("\r\n\r\nhello"), std::string::npos);
  EXPECT_EQ(calls, 3);
}

TEST_F(HttpServerTest, EndedBeforeItBegan_DoesNotBegin) {
  server.new_task_queue = []() -> httplib::TaskQueue* {
    ADD_FAILURE() << "serves";
    throw std::bad_alloc();
  };
  server.end();
  server.serve();
}

TEST_F(HttpServerTest, EndedWhileItCannotBegin_Ends) {
  std::promise<void> tried;
  bool told = false;
  server.new_task_queue = [&]() -> httplib::TaskQueue* {
    if (!told) tried.set_value();
    told = true;
    throw std::bad_alloc();
  };
  begin();
  tried.get_future().wait();
  server.end();
  acceptor.join();
}

TEST_F(HttpServerTest, BrokenOff_ConnectionUnderWayGetsNoAnswer) {
  std::promise<void> asked;
  std::promise<void> brokenOff;
  server.set_pre_routing_handler([&](const httplib::Request&, httplib::Response& response) {
    asked.set_value();
    brokenOff.get_future().wait();
    response.set_content("hello", "text/plain");
    return httplib::Server::HandlerResponse::Handled;
  });
  begin();
  auto answer = std::async(std::launch::async, [this] { return answerOf(port); });
  asked.get_future().wait();
  server.breakOff();
  brokenOff.set_value();
  EXPECT_EQ(answer.get(), "");
}

TEST_F(HttpServerTest, BrokenOff_ConnectionThatComesAfterwardsGetsNoAnswer) {
  begin();
  EXPECT_NE(answerOf(port).find("\r\n\r\nhello"), std::string::npos);
  server.breakOff();
  EXPECT_EQ(answerOf(port), "");
}

TEST(HttpServer, Deleted_LeavesItsPortFree) {
  auto server = std::make_unique<HttpServer>();
  const int port = server->bind_to_any_port("127.0.0.1");
  server.reset();
  HttpServer again;
  again.set_socket_options([](socket_t) {});
  EXPECT_TRUE(again.bind_to_port("127.0.0.1", port));
}

TEST(ConnectionThreads, ConnectionThatThrows_LeavesItsPlace) {
  ConnectionThreads threads;
  std::atomic<int> begun{0};
  const auto connection = [&] {
    ++begun;
    throw std::bad_alloc();
  };
  const int many = static_cast<int>(2 * ConnectionThreads::kMostConnections);
  for (int i = 0; i < many; ++i) threads.run(connection);
  EXPECT_TRUE(threads.finish(kLong));
  EXPECT_EQ(begun, many);
}

TEST(ConnectionThreads, ConnectionThatGoesOn_IsWaitedForInTheEnd) {
  ConnectionThreads threads;
  std::promise<void> release;
  std::atomic<bool> ended{false};
  threads.run([&] {
    release.get_future().wait();
    ended = true;
  });
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
    threads.run([&] { ran = std::this_thread::get_id(); });
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
    threads.run(std::move(connection));
    met = noMemory::met();
    noMemory::after(-1);
    ++served;
    onCallers += ran.get_future().get() == std::this_thread::get_id();
  }
  EXPECT_GT(onCallers, 0);
  EXPECT_LT(onCallers, served);
  EXPECT_TRUE(threads.finish(kLong));
}
