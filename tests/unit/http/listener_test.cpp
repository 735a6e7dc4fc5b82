#include "http/listener.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <future>
#include <new>
#include <string>
#include <type_traits>

#include "tests/support/no_memory.h"
#include "tests/unit/http/fake_tcp.h"
#include "tests/unit/http/test_server.h"
#include "tests/unit/http/wrapped_calls.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

using wrapped::PollAnswer;
using zorhtml::serve;
using zorhtml::ServerSettings;

class Listener : public testing::Test {
 protected:
  void SetUp() override { FakeTcp::instance().reset(); }

  static PollAnswer quiet() {
    return [](pollfd*) { return 0; };
  }
  static PollAnswer event(short bits) {
    return [bits](pollfd* set) { return set[0].revents = bits, 1; };
  }
  static PollAnswer failure(int error) {
    return [error](pollfd* set) { return set[0].revents = POLLIN, errno = error, -1; };
  }
  PollAnswer quietAfterStop() {
    return [this](pollfd*) { return settings_.stop = true, 0; };
  }

  // Serves through `answers` and a last quiet pass that sees the stop.
  std::vector<wrapped::Poll> serveThrough(std::vector<PollAnswer> answers) {
    answers.push_back(quietAfterStop());
    wrapped::answerPolls(std::move(answers));
    EXPECT_TRUE(serve(settings_, prototype_));
    return wrapped::takePolls();
  }

  FakeTcp& fake_ = FakeTcp::instance();
  ServerSettings settings_{6370};
  TestServer prototype_;
};

TEST(ServerSettings, Constructor_SetsThePortAlone) {
  const ServerSettings settings(6370);
  EXPECT_EQ(settings.port, 6370);
  EXPECT_EQ(settings.auxEndpoint, 0);
  EXPECT_EQ(settings.text1 + settings.text2, "");
  EXPECT_FALSE(settings.option);
  EXPECT_FALSE(settings.stop);
  EXPECT_EQ(sizeof settings.stop, 1U);
}

// Holds at compile time.
static_assert(std::is_same_v<decltype(ServerSettings::port), int>);
static_assert(std::is_same_v<decltype(ServerSettings::auxEndpoint), int>);
static_assert(std::is_same_v<decltype(ServerSettings::text1), std::string>);
static_assert(std::is_same_v<decltype(ServerSettings::text2), std::string>);
static_assert(std::is_same_v<decltype(ServerSettings::option), bool>);

TEST(ServerSettings, Fields_StandInTheirOrder) {
  const ServerSettings settings(1);
  const auto address = [](const auto& field) { return reinterpret_cast<std::uintptr_t>(&field); };
  EXPECT_EQ(address(settings), address(settings.port));
  EXPECT_LT(address(settings.port), address(settings.auxEndpoint));
  EXPECT_LT(address(settings.auxEndpoint), address(settings.text1));
  EXPECT_LT(address(settings.text1), address(settings.text2));
  EXPECT_LT(address(settings.text2), address(settings.option));
  EXPECT_LT(address(settings.option), address(settings.stop));
}

TEST_F(Listener, Port_IsOpenedOnEveryAddress) {
  serveThrough({});
  EXPECT_EQ(fake_.ports, (std::vector<unsigned short>{6370}));
  EXPECT_TRUE(fake_.nullAddress);
  EXPECT_EQ(settings_.port, 6370);
  EXPECT_EQ(fake_.created, 1);
  EXPECT_EQ(fake_.deleted, 1);
}

TEST_F(Listener, PortBeyond16Bits_IsTruncated) {
  fake_.localAddress = "0.0.0.0:1";
  for (const auto& [port, opened] : {std::pair(65536 + 80, 80), std::pair(-2, 65534), std::pair(65536, 0)}) {
    fake_.ports.clear();
    settings_.port = port;
    settings_.stop = false;
    serveThrough({});
    EXPECT_EQ(fake_.ports, (std::vector<unsigned short>{static_cast<unsigned short>(opened)}));
    EXPECT_EQ(settings_.port, port);
  }
}

TEST_F(Listener, AnyPort_IsWrittenBack) {
  const std::pair<const char*, int> addresses[] = {
      {"127.0.0.1:40001", 40001}, {"::ffff:1.2.3.4:7", 7}, {"no port", -1}, {"", -1}, {"host:x", 0}, {"host:", 0}};
  for (const auto& [address, port] : addresses) {
    settings_.port = -1;
    settings_.stop = false;
    fake_.reset();
    fake_.localAddress = address;
    serveThrough({});
    EXPECT_EQ(fake_.ports, (std::vector<unsigned short>{0})) << address;
    EXPECT_TRUE(fake_.nullAddress) << address;
    EXPECT_EQ(settings_.port, port) << address;
  }
}

TEST_F(Listener, AnyPort_IsWrittenBackBeforeTheFirstPass) {
  settings_.port = -1;
  fake_.localAddress = "0.0.0.0:40001";
  int port = 0;
  serveThrough({[&](pollfd*) { return port = settings_.port, 0; }});
  EXPECT_EQ(port, 40001);
}

TEST_F(Listener, AnyResultOfListenButZero_IsSuccess) {
  for (const int result : {2, -1}) {
    fake_.listenResult = result;
    settings_.stop = false;
    serveThrough({});
  }
}

TEST_F(Listener, FixedPort_IsNotWrittenBack) {
  fake_.localAddress = "0.0.0.0:1";
  serveThrough({});
  EXPECT_EQ(settings_.port, 6370);
}

TEST_F(Listener, FailedListen_IsReportedAndTheEndpointNotReleased) {
  for (const int port : {6370, -1}) {
    settings_.port = port;
    fake_.reset();
    fake_.listenResult = 0;
    fake_.localAddress = "0.0.0.0:1";
    testing::internal::CaptureStderr();
    bool served = true;
    {
#if defined(__SANITIZE_ADDRESS__)
      // The endpoint is left to the end of the process on purpose.
      const __lsan::ScopedDisabler disabler;
#endif
      served = serve(settings_, prototype_);
    }
    EXPECT_FALSE(served);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to listen on port " + std::to_string(port) + "\n");
    EXPECT_EQ(settings_.port, port);
    EXPECT_EQ(fake_.created, 1);
    EXPECT_EQ(fake_.deleted, 0);
  }
}

// A connection that a detached thread serves; `ended` is set when its stream is deleted.
struct Served {
  explicit Served(const std::string& input) : peer(input) {
    peer.onDelete([this] { ended.set_value(); });
  }
  ScriptedPeer peer;
  std::promise<void> ended;
};

// Each allocation of the start fails once: the endpoint's, and that of the address that an open port is read from.
TEST_F(Listener, NoMemoryForTheEndpoint_IsAFailureToListen) {
  int failures = 0;
  for (bool met = true; met; ++failures) {
    fake_.reset();
    fake_.localAddress = "[0000:0000:0000:0000:0000:0000:0000:0000]:40001";
    settings_.port = -1;
    settings_.stop = true;
    testing::internal::CaptureStderr();
    wrapped::answerPolls({[](pollfd*) { return 0; }});
    noMemory::once(failures);
    const bool served = serve(settings_, prototype_);
    met = noMemory::met();
    noMemory::after(-1);
    wrapped::takePolls();
    EXPECT_EQ(served, !met) << failures;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), met ? "Failed to listen on port -1\n" : "") << failures;
    EXPECT_EQ(settings_.port, met ? -1 : 40001) << failures;
    EXPECT_EQ(fake_.created, fake_.deleted) << failures;
  }
  EXPECT_GT(failures, 2);
}

// The allocations of one connection, of which each fails once; the next connection is served.
TEST_F(Listener, NoMemoryForAConnection_DropsItAlone) {
  prototype_.headers["a field that fits in no string itself"] = "";
  int failures = 0;
  for (bool met = true; met; ++failures) {
    Served first("GET /a HTTP/1.1\r\n\r\n");
    Served second("GET /b HTTP/1.1\r\n\r\n");
    fake_.accepts = {first.peer.stream(), second.peer.stream()};
    serveThrough({[failures](pollfd* set) {
                    noMemory::once(failures);
                    return set[0].revents = POLLIN, 1;
                  },
                  [&met](pollfd* set) {
                    met = noMemory::met();
                    noMemory::after(-1);
                    return set[0].revents = POLLIN, 1;
                  }});
    first.ended.get_future().wait();
    second.ended.get_future().wait();
    EXPECT_EQ(first.peer.written().empty(), met) << failures;
    EXPECT_EQ(second.peer.writes().back(), "GET /b") << failures;
  }
  EXPECT_GT(failures, 2);
}

TEST_F(Listener, NothingToServe_IsFalseAtOnce) {
  settings_.port = 0;
  wrapped::answerPolls({});
  testing::internal::CaptureStderr();
  EXPECT_FALSE(serve(settings_, prototype_));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(wrapped::takePolls().empty());
  EXPECT_EQ(fake_.created, 0);
}

// The endpoint's entry, or -1 in its place, before that of the second endpoint, which is never opened.
void expectPasses(const std::vector<wrapped::Poll>& polls, std::size_t passes, int descriptor) {
  EXPECT_EQ(polls.size(), passes);
  for (const auto& poll : polls) {
    EXPECT_EQ(poll.count, descriptor < 0 ? 0U : 1U);
    EXPECT_EQ(poll.timeoutMs, 1000);
    EXPECT_EQ(poll.set[0].fd, descriptor);
    EXPECT_EQ(poll.set[1].fd, -1);
    for (const pollfd& entry : poll.set) {
      EXPECT_EQ(entry.events, POLLIN);
      EXPECT_EQ(entry.revents, 0);
    }
  }
}

TEST_F(Listener, SecondEndpointAlone_IdlesUntilTheStop) {
  for (const int second : {1, -1}) {
    settings_.port = 0;
    settings_.auxEndpoint = second;
    settings_.stop = false;
    expectPasses(serveThrough({quiet(), quiet(), event(POLLIN)}), 4, -1);
  }
  EXPECT_EQ(fake_.created, 0);
  EXPECT_TRUE(fake_.acceptTimeouts.empty());
}

TEST_F(Listener, EachPass_PollsTheEndpointForASecond) {
  expectPasses(serveThrough({quiet(), event(POLLERR)}), 3, FakeTcp::kDescriptor);
}

TEST_F(Listener, OtherSettings_ChangeNothingBesideAPort) {
  settings_.auxEndpoint = 1;
  settings_.text1 = "127.0.0.1";
  settings_.text2 = "::1";
  settings_.option = true;
  expectPasses(serveThrough({quiet()}), 2, FakeTcp::kDescriptor);
  EXPECT_EQ(fake_.ports, (std::vector<unsigned short>{6370}));
  EXPECT_TRUE(fake_.nullAddress);
  EXPECT_EQ(fake_.created, 1);
}

TEST_F(Listener, Stop_IsSeenAfterAQuietPassAlone) {
  settings_.stop = true;
  wrapped::answerPolls({event(POLLIN), event(POLLIN), failure(EINTR), failure(ENOMEM), event(POLLHUP), quiet()});
  EXPECT_TRUE(serve(settings_, prototype_));
  EXPECT_EQ(wrapped::takePolls().size(), 6U);
  EXPECT_EQ(fake_.acceptTimeouts, (std::vector<int>{-1, -1}));
}

TEST_F(Listener, OtherEventBits_AreIgnored) {
  serveThrough({event(POLLERR), event(POLLHUP), event(POLLNVAL), event(POLLPRI)});
  EXPECT_TRUE(fake_.acceptTimeouts.empty());
}

TEST_F(Listener, PollinBesideOtherBits_IsAccepted) {
  serveThrough({event(POLLIN | POLLERR | POLLHUP)});
  EXPECT_EQ(fake_.acceptTimeouts.size(), 1U);
}

TEST_F(Listener, FailedPoll_IsNoPassToActOn) {
  const auto polls = serveThrough({failure(ENOMEM), failure(EINTR)});
  EXPECT_EQ(polls.size(), 3U);
  EXPECT_TRUE(fake_.acceptTimeouts.empty());
}

TEST_F(Listener, FailedAccept_IsIgnored) {
  fake_.accepts = {nullptr, nullptr};
  wrapped::takeThreadCalls();
  serveThrough({event(POLLIN), event(POLLIN)});
  EXPECT_EQ(fake_.acceptTimeouts.size(), 2U);
  EXPECT_TRUE(wrapped::takeThreadCalls().empty());
}

TEST_F(Listener, Connection_IsServedByACopyOfThePrototype) {
  prototype_.timeout = 4321;
  Served connection("GET /a HTTP/1.1\r\n\r\n");
  fake_.accepts = {connection.peer.stream()};
  serveThrough({event(POLLIN)});
  connection.ended.get_future().wait();
  EXPECT_EQ(connection.peer.written(), "HTTP/1.1 200 OK\r\nContent-Length: 6\r\nConnection: Keep-Alive\r\n\r\nGET /a");
  EXPECT_EQ(connection.peer.reads().front().timeoutMs, 4321);
  EXPECT_EQ(prototype_.connection, nullptr);
}

TEST_F(Listener, ManyConnections_AreEachServed) {
  std::deque<Served> connections;
  std::vector<PollAnswer> answers;
  for (int i = 0; i < 20; ++i) {
    connections.emplace_back("GET /" + std::to_string(i) + " HTTP/1.1\r\n\r\n");
    fake_.accepts.push_back(connections.back().peer.stream());
    answers.push_back(event(POLLIN));
  }
  serveThrough(answers);
  for (std::size_t i = 0; i < connections.size(); ++i) {
    connections[i].ended.get_future().wait();
    const std::string& last = connections[i].peer.writes().back();
    EXPECT_EQ(last, "GET /" + std::to_string(i));
  }
}

// Holds its connection until every other one is being served too.
class Meeting : public TestServer {
 public:
  static inline std::atomic<int> waiting{0};
  static inline std::promise<void> complete;
  static inline std::shared_future<void> allHere;

  bool doGET(const std::string& path) override {
    if (++waiting == 3) complete.set_value();
    allHere.wait();
    return TestServer::doGET(path);
  }
};

TEST_F(Listener, Connections_AreServedAtTheSameTime) {
  Meeting::allHere = Meeting::complete.get_future().share();
  std::deque<Served> connections;
  for (int i = 0; i < 3; ++i) {
    connections.emplace_back("GET / HTTP/1.1\r\n\r\n");
    fake_.accepts.push_back(connections.back().peer.stream());
  }
  wrapped::answerPolls({event(POLLIN), event(POLLIN), event(POLLIN), quietAfterStop()});
  EXPECT_TRUE(serve(settings_, Meeting()));
  EXPECT_EQ(wrapped::takePolls().size(), 4U);
  for (Served& connection : connections) {
    connection.ended.get_future().wait();
    EXPECT_EQ(connection.peer.writes().back(), "GET /");
  }
}

// Holds its connection until it is let go.
class Held : public TestServer {
 public:
  static inline std::promise<void> begun;
  static inline std::promise<void> release;
  static inline std::shared_future<void> released{release.get_future()};

  bool doGET(const std::string& path) override {
    begun.set_value();
    released.wait();
    return TestServer::doGET(path);
  }
};

TEST_F(Listener, ConnectionUnderWay_RunsOnAfterTheStop) {
  Served connection("GET /long HTTP/1.1\r\n\r\n");
  fake_.accepts = {connection.peer.stream()};
  wrapped::answerPolls({event(POLLIN), [this](pollfd*) {
                          Held::begun.get_future().wait();
                          settings_.stop = true;
                          return 0;
                        }});
  {
    const Held prototype;
    EXPECT_TRUE(serve(settings_, prototype));
  }
  wrapped::takePolls();
  EXPECT_EQ(fake_.deleted, 1);
  // Neither the endpoint nor the prototype is there any more.
  Held::release.set_value();
  connection.ended.get_future().wait();
  EXPECT_EQ(connection.peer.writes().back(), "GET /long");
}

TEST_F(Listener, FailedThreadCreation_DropsTheConnectionAlone) {
  const ScriptedPeer dropped("GET / HTTP/1.1\r\n\r\n");
  Served served("GET /b HTTP/1.1\r\n\r\n");
  fake_.accepts = {dropped.stream(), served.peer.stream()};
  testing::internal::CaptureStderr();
  wrapped::failThreads(true);
  serveThrough({event(POLLIN), [](pollfd* set) {
                  wrapped::failThreads(false);
                  return set[0].revents = POLLIN, 1;
                }});
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(dropped.deleted());
  EXPECT_EQ(dropped.writeCalls(), 0);
  served.ended.get_future().wait();
  EXPECT_EQ(served.peer.writes().back(), "GET /b");
}

TEST_F(Listener, PrototypeKnownByItsBase_IsRefusedBeforeAnythingIsOpened) {
  struct Special : TestServer {};
  const Special special;
  const TestServer& known = special;
  wrapped::answerPolls({});
  EXPECT_FALSE(serve(settings_, known));
  wrapped::takePolls();
  EXPECT_EQ(fake_.created, 0);
}

struct Uncopyable : TestServer {
  Uncopyable() = default;
  Uncopyable(const Uncopyable& other) : TestServer(other) { throw std::bad_alloc(); }
};

TEST_F(Listener, PrototypeThatCannotBeCopied_DropsTheConnectionAlone) {
  const ScriptedPeer first, second;
  fake_.accepts = {first.stream(), second.stream()};
  wrapped::answerPolls({event(POLLIN), event(POLLIN), quietAfterStop()});
  EXPECT_TRUE(serve(settings_, Uncopyable()));
  EXPECT_EQ(wrapped::takePolls().size(), 3U);
  EXPECT_TRUE(first.deleted());
  EXPECT_TRUE(second.deleted());
}

struct EndsItsThread : TestServer {
  EndsItsThread() = default;
  EndsItsThread(const EndsItsThread& other) : TestServer(other) { pthread_exit(nullptr); }
};

TEST_F(Listener, PrototypeWhoseCopyingEndsTheThread_TakesTheEndpointAlong) {
  struct Serving : zorhtml::Thread {
    explicit Serving(ServerSettings& given) : settings(given) {}
    int run() override {
      wrapped::answerPolls({event(POLLIN)});
      serve(settings, EndsItsThread());
      ADD_FAILURE() << "serve() has returned";
      return 0;
    }
    ServerSettings& settings;
  };
  const ScriptedPeer peer;
  fake_.accepts = {peer.stream()};
  { const zorhtml::ThreadControl joined(new Serving(settings_), false); }
  EXPECT_TRUE(peer.deleted());
  EXPECT_EQ(fake_.deleted, 1);
}

TEST_F(Listener, CopyThatIsNull_DropsTheConnectionAlone) {
  const ScriptedPeer peer;
  fake_.accepts = {peer.stream()};
  wrapped::answerPolls({event(POLLIN), quietAfterStop()});
  EXPECT_TRUE(serve(settings_, prototype_, [](const zorhtml::HttpThread&) -> zorhtml::HttpThread* { return nullptr; }));
  wrapped::takePolls();
  EXPECT_TRUE(peer.deleted());
}

}  // namespace
