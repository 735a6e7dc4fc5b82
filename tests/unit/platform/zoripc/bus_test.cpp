#include "platform/linux/zoripc/bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/zoripc/bus_address.h"
#include "tests/unit/platform/zoripc/driven_time.h"
#include "tests/unit/platform/zoripc/failing_calls.h"
#include "tests/unit/platform/zoripc/private_bus.h"
#include "tests/unit/platform/zoripc/recorder.h"

using testing::ElementsAre;
using zoripc::Bus;
using zoripc::busAddress;
using zoripc::JSObject;
using zoripc::Mailbox;

namespace {

constexpr int kLongMs = 60000;
constexpr long long kDayMs = 86400000;

// An application on the bus that JXPLATFORM_BUS names.
struct Application {
  explicit Application(const std::string& id) {
    mailbox.wantFailures(Recorder::callback, &failures);
    EXPECT_TRUE(bus.setId(id));
  }
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;
  ~Application() {
    bus.close(kLongMs);
    mailbox.close(kLongMs);
  }

  int send(const std::string& receiver, const std::string& name, const JSObject& message,
           const std::string& sender = "") {
    return bus.send({sender, receiver, name, message, 3});
  }

  Recorder notifications;
  Recorder failures;
  Mailbox mailbox;
  Bus bus{mailbox};
};

// An application that does nothing by itself, not even acknowledge.
class Passive {
 public:
  Passive(const std::string& address, const char* name) {
    EXPECT_GE(sd_bus_new(&bus_), 0);
    EXPECT_GE(sd_bus_set_address(bus_, address.c_str()), 0);
    EXPECT_GE(sd_bus_set_bus_client(bus_, 1), 0);
    EXPECT_GE(sd_bus_start(bus_), 0);
    EXPECT_GE(sd_bus_request_name(bus_, name, 0), 0);
  }
  Passive(const Passive&) = delete;
  Passive& operator=(const Passive&) = delete;
  ~Passive() { sd_bus_flush_close_unref(bus_); }

  void acknowledge() {
    sd_bus_message* const call = take();
    EXPECT_GE(sd_bus_reply_method_return(call, ""), 0);
    sd_bus_message_unref(call);
  }

  void refuse() {
    sd_bus_message* const call = take();
    EXPECT_GE(sd_bus_reply_method_errorf(call, "zoripc.Error.NotExpected", "not wanted"), 0);
    sd_bus_message_unref(call);
  }

 private:
  // The next notification.
  sd_bus_message* take() {
    int result = 0;
    while (result >= 0) {
      sd_bus_message* message = nullptr;
      result = sd_bus_process(bus_, &message);
      if (message != nullptr && sd_bus_message_is_method_call(message, nullptr, "Notify") > 0) return message;
      sd_bus_message_unref(message);
      if (result == 0) result = sd_bus_wait(bus_, UINT64_MAX);
    }
    ADD_FAILURE() << "no notification comes";
    return nullptr;
  }

  sd_bus* bus_ = nullptr;
};

long openFiles() {
  using Files = std::filesystem::directory_iterator;
  return std::distance(Files("/proc/self/fd"), Files());
}

class BusTest : public testing::Test {
 protected:
  void SetUp() override { setenv("JXPLATFORM_BUS", bus_.address().c_str(), 1); }

  PrivateBus bus_;
};

}  // namespace

TEST_F(BusTest, Notification_ArrivesWholeAndIsAcknowledged) {
  Application receiver("_mac");
  receiver.mailbox.want("Name", "", Recorder::callback, &receiver.notifications);
  Application sender("jxdownloader");
  JSObject message;
  message["text"] = "\xC3\xA4\n\"";
  EXPECT_EQ(sender.send("_mac", "Name", message), 0);
  EXPECT_EQ(sender.send("nobody", "Name", JSObject(1)), 0);
  EXPECT_THAT(receiver.notifications.wait(1), ElementsAre("jxdownloader>_mac Name {\"text\":\"\xC3\xA4\\n\\\"\"} 3"));
  EXPECT_THAT(sender.failures.wait(1), ElementsAre("jxdownloader>nobody Name 1 3"));
}

TEST_F(BusTest, GivenSender_IsTold) {
  Application receiver("r");
  receiver.mailbox.want("Name", "named", Recorder::callback, &receiver.notifications);
  Application sender("");
  EXPECT_EQ(sender.send("r", "Name", JSObject(), "named"), 0);
  EXPECT_THAT(receiver.notifications.wait(1), ElementsAre("named>r Name null 3"));
}

TEST_F(BusTest, NobodyRegistered_IsAFailedDelivery) {
  Application receiver("r");
  Application sender("s");
  EXPECT_EQ(sender.send("r", "Name", JSObject("x")), 0);
  EXPECT_THAT(sender.failures.wait(1), ElementsAre("s>r Name \"x\" 3"));
}

// A report of the first one would come before that of the second.
TEST_F(BusTest, SilenceOfTheReceiver_IsNoFailedDelivery) {
  auto silent = std::make_unique<Passive>(bus_.address(), "zoripc.App.ar");
  Application sender("s");
  EXPECT_EQ(sender.send("r", "Name", JSObject(1)), 0);
  const driven::ClockAhead later(kDayMs);
  EXPECT_EQ(sender.send("nobody", "Name", JSObject(2)), 0);
  EXPECT_THAT(sender.failures.wait(1), ElementsAre("s>nobody Name 2 3"));
  silent.reset();
  EXPECT_THAT(sender.failures.wait(2), ElementsAre("s>nobody Name 2 3", "s>r Name 1 3"));
}

TEST_F(BusTest, LateAcknowledgement_IsOne) {
  auto slow = std::make_unique<Passive>(bus_.address(), "zoripc.App.ar");
  Application sender("s");
  EXPECT_EQ(sender.send("r", "Name", JSObject(1)), 0);
  const driven::ClockAhead later(kDayMs);
  slow->acknowledge();
  slow.reset();
  EXPECT_EQ(sender.send("nobody", "Name", JSObject(2)), 0);
  EXPECT_THAT(sender.failures.wait(1), ElementsAre("s>nobody Name 2 3"));
}

TEST_F(BusTest, LateRefusal_IsAFailedDelivery) {
  Passive slow(bus_.address(), "zoripc.App.ar");
  Application sender("s");
  EXPECT_EQ(sender.send("r", "Name", JSObject(1)), 0);
  const driven::ClockAhead later(kDayMs);
  slow.refuse();
  EXPECT_THAT(sender.failures.wait(1), ElementsAre("s>r Name 1 3"));
}

TEST_F(BusTest, LargePayload_ArrivesAlsoFromAnApplicationThatEnds) {
  Application receiver("r");
  receiver.mailbox.want("Name", "", Recorder::callback, &receiver.notifications);
  const std::string large(8 << 20, 'x');
  EXPECT_EQ(std::make_unique<Application>("s")->send("r", "Name", JSObject(large)), 0);
  EXPECT_TRUE(receiver.notifications.wait(1) == std::vector<std::string>{"s>r Name \"" + large + "\" 3"});
}

TEST_F(BusTest, ManyFromManyThreads_AllArrive) {
  Application receiver("r");
  receiver.mailbox.want("Name", "", Recorder::callback, &receiver.notifications);
  Application sender("s");
  std::thread threads[4];
  for (std::thread& thread : threads) {
    thread = std::thread([&] {
      for (int i = 0; i < 50; ++i) EXPECT_EQ(sender.send("r", "Name", JSObject(i)), 0);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(receiver.notifications.wait(200).size(), 200U);
  EXPECT_TRUE(sender.failures.lines().empty());
}

TEST_F(BusTest, TextThatIsNotUtf8_IsRefusedAtOnce) {
  Application sender("s");
  EXPECT_NE(sender.send("r", "\xFF", JSObject(1)), 0);
  EXPECT_NE(sender.send("r", "Name", JSObject(1), "\xFF"), 0);
  EXPECT_EQ(sender.send("", "Name", JSObject(1)), -EINVAL);
  EXPECT_NE(sender.send(std::string(300, 'r'), "Name", JSObject(1)), 0);
}

TEST_F(BusTest, NotificationToOneself_Arrives) {
  Application self("me");
  self.mailbox.want("Name", "", Recorder::callback, &self.notifications);
  EXPECT_EQ(self.send("me", "Name", JSObject(1)), 0);
  EXPECT_THAT(self.notifications.wait(1), ElementsAre("me>me Name 1 3"));
}

TEST_F(BusTest, AnotherId_ReplacesTheFirst) {
  Application receiver("old");
  receiver.mailbox.want("Name", "", Recorder::callback, &receiver.notifications);
  EXPECT_TRUE(receiver.bus.setId("new"));
  EXPECT_TRUE(receiver.bus.setId("new"));
  Application sender("s");
  EXPECT_EQ(sender.send("old", "Name", JSObject(1)), 0);
  EXPECT_THAT(sender.failures.wait(1), ElementsAre("s>old Name 1 3"));
  EXPECT_EQ(sender.send("new", "Name", JSObject(2)), 0);
  EXPECT_THAT(receiver.notifications.wait(1), ElementsAre("s>new Name 2 3"));
}

TEST_F(BusTest, EmptyId_GivesTheNameBack) {
  Application receiver("old");
  EXPECT_TRUE(receiver.bus.setId(""));
  for (const char* name : {"zoripc.App.aold", "zoripc.App.a"}) const Passive other(bus_.address(), name);
}

TEST_F(BusTest, IdThatIsNoName_IsReportedAndKept) {
  testing::internal::CaptureStderr();
  const std::string id(300, 'r');
  const Application application(id);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "libzoripc: the bus does not let us have the name zoripc.App.a" + id + ": Invalid argument\n");
}

TEST_F(BusTest, IdOfTheProcessInUse_EndsIt) {
  const Passive other(bus_.address(), "zoripc.App.ar");
  EXPECT_EXIT(zoripc::ipcSetAppID("r"), testing::ExitedWithCode(1), "has the id r on this bus; end it first");
}

TEST_F(BusTest, ConnectionThatBreaksInASend_IsMadeAnew) {
  const long before = openFiles();
  {
    Application receiver("r");
    receiver.mailbox.want("Name", "", Recorder::callback, &receiver.notifications);
    Application sender("s");
    const failing::Calls calls("sendmsg", {EPIPE});
    EXPECT_EQ(sender.send("r", "Name", JSObject(1)), 0);
    EXPECT_EQ(calls.left(), 0U);
    EXPECT_THAT(receiver.notifications.wait(1), ElementsAre("s>r Name 1 3"));
  }
  EXPECT_EQ(openFiles(), before);
}

TEST_F(BusTest, IdInUse_IsRefusedWithAWord) {
  Application first("r");
  first.mailbox.want("Name", "", Recorder::callback, &first.notifications);
  Application second("old");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(second.bus.setId("r"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "libzoripc: process " + std::to_string(getpid()) + " has the id r on this bus; end it first\n");
  EXPECT_EQ(second.send("r", "Name", JSObject(1)), 0);
  EXPECT_THAT(first.notifications.wait(1), ElementsAre(">r Name 1 3"));
}

// The id of an application that is running already is not refused any more.
TEST_F(BusTest, IdLostToAnotherOnARestartedBus_IsInheritedFromIt) {
  Application receiver("r");
  receiver.mailbox.want("Name", "", Recorder::callback, &receiver.notifications);
  bus_.stop();
  std::unique_ptr<Passive> other;
  bus_.start([&](const std::string& address) {
    other = std::make_unique<Passive>(address, "zoripc.App.ar");
    testing::internal::CaptureStderr();
  });
  Application sender("s");
  EXPECT_EQ(sender.send("r", "Name", JSObject(1)), 0);
  other->acknowledge();
  EXPECT_EQ(receiver.send("s", "Name", JSObject(2)), 0);  // so that it is on the bus, and in the queue
  other.reset();
  EXPECT_EQ(sender.send("r", "Name", JSObject(3)), 0);
  EXPECT_THAT(receiver.notifications.wait(1), ElementsAre("s>r Name 3 3"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "libzoripc: process " + std::to_string(getpid()) +
                " has taken the id r on this bus; what is sent to it goes there until that ends\n");
}

TEST_F(BusTest, RestartedBus_IsFoundAgainByBothEnds) {
  const long before = openFiles();
  {
    Application receiver("r");
    receiver.mailbox.want("Name", "", Recorder::callback, &receiver.notifications);
    Application sender("s");
    EXPECT_EQ(sender.send("r", "Name", JSObject(1)), 0);
    receiver.notifications.wait(1);
    bus_.stop();
    EXPECT_NE(sender.send("r", "Name", JSObject(2)), 0);
    bus_.start();
    // The receiver comes back by itself; until then deliveries fail and are reported.
    std::size_t failed = sender.failures.lines().size();
    EXPECT_EQ(sender.send("r", "Name", JSObject(3)), 0);
    while (receiver.notifications.lines().size() < 2) {
      if (sender.failures.lines().size() == failed) {
        std::this_thread::yield();
        continue;
      }
      ++failed;
      ASSERT_LT(failed, 1000000U);
      EXPECT_EQ(sender.send("r", "Name", JSObject(3)), 0);
    }
    EXPECT_EQ(receiver.notifications.lines().back(), "s>r Name 3 3");
  }
  EXPECT_EQ(openFiles(), before);
}

TEST_F(BusTest, BusThatGoesBeforeTheAnswer_IsAFailedDelivery) {
  Application sender("s");
  Application busy("r");
  kill(bus_.pid(), SIGSTOP);
  EXPECT_EQ(sender.send("r", "Name", JSObject(1)), 0);
  kill(bus_.pid(), SIGKILL);
  EXPECT_THAT(sender.failures.wait(1), ElementsAre("s>r Name 1 3"));
}

TEST_F(BusTest, BusThatComesLater_IsFoundByAnApplicationWithAnId) {
  bus_.stop();
  testing::internal::CaptureStderr();
  Application receiver("r");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  receiver.mailbox.want("Name", "", Recorder::callback, &receiver.notifications);
  EXPECT_NE(receiver.send("r", "Name", JSObject(1)), 0);
  bus_.start();
  EXPECT_EQ(receiver.send("r", "Name", JSObject(2)), 0);
  EXPECT_THAT(receiver.notifications.wait(1), ElementsAre("r>r Name 2 3"));
}

TEST_F(BusTest, Closed_SendsNothingMore) {
  Application sender("s");
  sender.bus.close(kLongMs);
  EXPECT_NE(sender.send("r", "Name", JSObject(1)), 0);
}

TEST(BusWithoutTransport, Send_FailsAtOnce) {
  for (const char* address : {"unix:path=/nonexistent", "nonsense", "tcp:host=127.0.0.1,port=1", "unix:"}) {
    setenv("JXPLATFORM_BUS", address, 1);
    Application sender("");
    EXPECT_NE(sender.send("r", "Name", JSObject(1)), 0) << address;
    EXPECT_TRUE(sender.failures.lines().empty());
  }
}

TEST(BusAddress, Environment_NamesTheBus) {
  setenv("JXPLATFORM_BUS", "unix:path=/here", 1);
  EXPECT_EQ(busAddress(), "unix:path=/here");
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/session", 1);
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/system", 1);
  setenv("JXPLATFORM_BUS", "session", 1);
  EXPECT_EQ(busAddress(), "unix:path=/session");
  setenv("JXPLATFORM_BUS", "system", 1);
  EXPECT_EQ(busAddress(), "unix:path=/system");
  unsetenv("JXPLATFORM_BUS");
  EXPECT_EQ(busAddress(), "unix:path=/session");
  unsetenv("DBUS_SESSION_BUS_ADDRESS");
  setenv("XDG_RUNTIME_DIR", "/nonexistent", 1);
  EXPECT_EQ(busAddress(), "unix:path=/system");
  setenv("JXPLATFORM_BUS", "session", 1);
  EXPECT_EQ(busAddress(), "");
  unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  setenv("JXPLATFORM_BUS", "system", 1);
  EXPECT_EQ(busAddress(), "unix:path=/run/dbus/system_bus_socket");
}

TEST(BusAddress, RuntimeDirectoryWithABus_HasASessionBus) {
  const PrivateBus bus;
  const std::string directory = bus.path().substr(0, bus.path().rfind('/'));
  unsetenv("DBUS_SESSION_BUS_ADDRESS");
  setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
  for (const char* choice : {"", "session"}) {
    setenv("JXPLATFORM_BUS", choice, 1);
    EXPECT_EQ(busAddress(), bus.address());
  }
}
