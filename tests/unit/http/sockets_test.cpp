// The listener, the connection loop and the client over real sockets.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "http/listener.h"
#include "tests/unit/http/test_server.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

using zorhtml::HttpMethod;
using zorhtml::serve;
using zorhtml::ServerSettings;

// Holds each "/meet" until three are there.
class Gathering : public TestServer {
 public:
  bool doGET(const std::string& path) override {
    if (path != "/meet") return TestServer::doGET(path);
    if (++waiting == 3) met.set_value();
    allMet.wait();
    return TestServer::doGET(path);
  }

  static inline std::atomic<int> waiting{0};
  static inline std::promise<void> met;
  static inline std::shared_future<void> allMet{met.get_future()};
};

// A port that was free a moment ago.
int freePort() {
  zoripc::TCP endpoint;
  EXPECT_NE(endpoint.listen(0, nullptr), 0);
  const std::string address = endpoint.localAddress();
  return std::stoi(address.substr(address.rfind(':') + 1));
}

// serve() on a thread of its own, until the object goes.
class Server {
 public:
  Server()
      : thread_([this] {
          result_ = serve(settings_, Gathering());
          ended_ = true;
        }) {}
  ~Server() {
    settings_.stop = true;
    thread_.join();
    EXPECT_TRUE(result_);
  }

  // A connected stream; tries until the endpoint stands.
  zoripc::IPC* connect() const {
    for (;;) {
      auto stream = std::make_unique<zoripc::TCP>();
      if (stream->connect("127.0.0.1", static_cast<unsigned short>(settings_.port), 10000)) return stream.release();
      if (ended_) throw std::runtime_error("the listener has ended");
      std::this_thread::yield();
    }
  }

 private:
  ServerSettings settings_{freePort()};
  bool result_ = false;
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

std::string get(const Server& server, const std::string& path) {
  zorhtml::HttpProto client(server.connect());
  std::string body, type;
  EXPECT_EQ(client.request(HttpMethod::Get, path, "", "", body, type, false), 200);
  return body;
}

TEST(Sockets, Clients_AreServedOneAfterTheOther) {
  const Server server;
  for (const char* path : {"/a", "/b?c", "/d"}) EXPECT_EQ(get(server, path), "GET " + std::string(path));
}

TEST(Sockets, KeepAliveClient_IsServedOnOneConnection) {
  const Server server;
  zorhtml::HttpProto client(server.connect());
  std::string body, type;
  for (int i = 0; i < 50; ++i) {
    const std::string sent(static_cast<std::size_t>(i) * 1000, 'x');
    ASSERT_EQ(client.request(HttpMethod::Post, "/p", sent, "", body, type, true), 200);
    ASSERT_EQ(body, "POST /p " + sent);
  }
}

TEST(Sockets, ClientsAtTheSameTime_AreServedAtTheSameTime) {
  const Server server;
  std::vector<std::thread> clients;
  clients.reserve(3);
  std::atomic<int> answered{0};
  for (int i = 0; i < 3; ++i) {
    clients.emplace_back([&] {
      if (get(server, "/meet") == "GET /meet") ++answered;
    });
  }
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(answered, 3);
}

TEST(Sockets, ClientThatLeaves_DisturbsNobody) {
  const Server server;
  for (const char* part : {"", "GET", "POST /p HTTP/1.1\r\nContent-Length: 100\r\n\r\nhello"}) {
    const std::unique_ptr<zoripc::IPC> client(server.connect());
    EXPECT_TRUE(client->write(part, std::char_traits<char>::length(part)));
  }
  EXPECT_EQ(get(server, "/a"), "GET /a");
}

TEST(Sockets, AnyPort_IsWrittenBackBeforeAnyoneConnects) {
  struct Writing : ServerSettings {
    Writing() : ServerSettings(-1) { stop = true; }
  } settings;
  EXPECT_TRUE(serve(settings, Gathering()));
  EXPECT_GT(settings.port, 0);
  EXPECT_LT(settings.port, 65536);
}

TEST(Sockets, PortInUse_IsReported) {
  zoripc::TCP endpoint;
  ASSERT_NE(endpoint.listen(0, nullptr), 0);
  const std::string address = endpoint.localAddress();
  ServerSettings settings(std::stoi(address.substr(address.rfind(':') + 1)));
  testing::internal::CaptureStderr();
  bool served = true;
  {
#if defined(__SANITIZE_ADDRESS__)
    // The endpoint is left to the end of the process on purpose.
    const __lsan::ScopedDisabler disabler;
#endif
    served = serve(settings, Gathering());
  }
  EXPECT_FALSE(served);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to listen on port " + std::to_string(settings.port) + "\n");
}

}  // namespace
