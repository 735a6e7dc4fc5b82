#include "platform/linux/zoripc/mailbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/unit/platform/zoripc/recorder.h"

using testing::ElementsAre;
using zoripc::JSObject;
using zoripc::Mailbox;
using zoripc::Notification;

namespace {

constexpr int kLongMs = 60000;

Notification letter(const std::string& name, const std::string& sender = "x", int value = 1) {
  return {sender, "me", name, JSObject(value), 7};
}

class MailboxTest : public testing::Test {
 protected:
  void TearDown() override { mailbox_.close(kLongMs); }

  Recorder recorder_;
  Mailbox mailbox_;
};

// Blocks its callback until it is let go.
struct Gate {
  std::promise<void> entered;
  std::promise<void> opened;

  static void callback(void* data, const std::string&, const std::string&, const std::string&, const JSObject&,
                       unsigned) {
    auto* self = static_cast<Gate*>(data);
    self->entered.set_value();
    self->opened.get_future().wait();
  }
};

// Whether a thread of this process waits for something; its name has neither blanks nor brackets.
bool sleeps(pid_t thread) {
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string id, name, state;
  return status >> id >> name >> state && state == "S";
}

void throwing(void*, const std::string&, const std::string&, const std::string&, const JSObject&, unsigned) {
  throw std::runtime_error("from a callback");
}

}  // namespace

TEST_F(MailboxTest, Notification_ReachesTheCallbackWhole) {
  mailbox_.want("Name", "", Recorder::callback, &recorder_);
  EXPECT_TRUE(mailbox_.post(letter("Name", "from", 42)));
  EXPECT_THAT(recorder_.wait(1), ElementsAre("from>me Name 42 7"));
}

TEST_F(MailboxTest, OtherNamesAndSenders_AreNotWanted) {
  mailbox_.want("Name", "friend", Recorder::callback, &recorder_);
  EXPECT_TRUE(mailbox_.wants("Name", "friend"));
  EXPECT_FALSE(mailbox_.wants("Name", "stranger"));
  EXPECT_FALSE(mailbox_.wants("Other", "friend"));
  EXPECT_TRUE(mailbox_.post(letter("Name", "stranger")));
  EXPECT_TRUE(mailbox_.post(letter("Other", "friend")));
  EXPECT_TRUE(mailbox_.post(letter("Name", "friend")));
  EXPECT_THAT(recorder_.wait(1), ElementsAre("friend>me Name 1 7"));
}

TEST_F(MailboxTest, Notifications_KeepTheirOrder) {
  mailbox_.want("Name", "", Recorder::callback, &recorder_);
  for (int i = 0; i < 500; ++i) EXPECT_TRUE(mailbox_.post(letter("Name", "x", i)));
  const auto lines = recorder_.wait(500);
  ASSERT_EQ(lines.size(), 500U);
  for (std::size_t i = 0; i < 500; ++i) EXPECT_EQ(lines[i], "x>me Name " + std::to_string(i) + " 7");
}

TEST_F(MailboxTest, RepeatedRegistration_IsOne) {
  mailbox_.want("Name", "", Recorder::callback, &recorder_);
  mailbox_.want("Name", "", Recorder::callback, &recorder_);
  Recorder other;
  mailbox_.want("Name", "", Recorder::callback, &other);
  EXPECT_TRUE(mailbox_.post(letter("Name")));
  other.wait(1);
  EXPECT_THAT(recorder_.lines(), ElementsAre("x>me Name 1 7"));
}

TEST_F(MailboxTest, FailureReports_GoToTheirOwnCallbacks) {
  Recorder failures;
  mailbox_.want("Name", "", Recorder::callback, &recorder_);
  mailbox_.wantFailures(Recorder::callback, &failures);
  EXPECT_TRUE(mailbox_.postFailure(letter("Name", "me", 5)));
  EXPECT_THAT(failures.wait(1), ElementsAre("me>me Name 5 7"));
  EXPECT_TRUE(recorder_.lines().empty());
  EXPECT_FALSE(mailbox_.wants("Other", ""));
}

TEST_F(MailboxTest, UnknownRegistration_CannotBeEnded) {
  mailbox_.wantFailures(Recorder::callback, &recorder_);
  EXPECT_FALSE(mailbox_.unwantFailures(Recorder::callback, nullptr));
  EXPECT_TRUE(mailbox_.unwantFailures(Recorder::callback, &recorder_));
  EXPECT_FALSE(mailbox_.unwantFailures(Recorder::callback, &recorder_));
}

TEST_F(MailboxTest, EndedRegistration_IsNotCalled) {
  Recorder other;
  mailbox_.wantFailures(Recorder::callback, &recorder_);
  mailbox_.wantFailures(Recorder::callback, &other);
  EXPECT_TRUE(mailbox_.unwantFailures(Recorder::callback, &recorder_));
  EXPECT_TRUE(mailbox_.postFailure(letter("Name")));
  other.wait(1);
  EXPECT_TRUE(recorder_.lines().empty());
}

TEST_F(MailboxTest, Ending_WaitsForTheCallbackUnderWay) {
  Gate gate;
  mailbox_.wantFailures(Gate::callback, &gate);
  EXPECT_TRUE(mailbox_.postFailure(letter("Name")));
  gate.entered.get_future().wait();
  std::atomic<pid_t> waiting{0};
  std::atomic<bool> ended{false};
  std::thread ending([&] {
    waiting = gettid();
    EXPECT_TRUE(mailbox_.unwantFailures(Gate::callback, &gate));
    ended = true;
  });
  while (!ended && !sleeps(waiting)) std::this_thread::yield();
  EXPECT_FALSE(ended);
  gate.opened.set_value();
  ending.join();
}

TEST_F(MailboxTest, Callback_CanEndItsOwnRegistration) {
  struct Self {
    Mailbox* mailbox;
    std::promise<bool> ended;
    static void callback(void* data, const std::string&, const std::string&, const std::string&, const JSObject&,
                         unsigned) {
      auto* self = static_cast<Self*>(data);
      self->ended.set_value(self->mailbox->unwantFailures(callback, data));
    }
  } self{&mailbox_, {}};
  mailbox_.wantFailures(Self::callback, &self);
  EXPECT_TRUE(mailbox_.postFailure(letter("Name")));
  EXPECT_TRUE(self.ended.get_future().get());
}

TEST_F(MailboxTest, ThrowingCallback_DoesNotHurtTheNext) {
  mailbox_.want("Name", "", throwing, nullptr);
  mailbox_.want("Name", "", Recorder::callback, &recorder_);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(mailbox_.post(letter("Name")));
  EXPECT_EQ(recorder_.wait(1).size(), 1U);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "libzoripc: the callback for Name threw an exception\n");
}

TEST_F(MailboxTest, TooManyWaiting_AreRefusedAndTheOthersDelivered) {
  Gate gate;
  mailbox_.wantFailures(Gate::callback, &gate);
  mailbox_.want("Name", "", Recorder::callback, &recorder_);
  EXPECT_TRUE(mailbox_.postFailure(letter("Name")));
  gate.entered.get_future().wait();
  for (std::size_t i = 0; i < Mailbox::kMaxWaiting; ++i) ASSERT_TRUE(mailbox_.post(letter("Name")));
  EXPECT_FALSE(mailbox_.post(letter("Name")));
  gate.opened.set_value();
  EXPECT_EQ(recorder_.wait(Mailbox::kMaxWaiting).size(), Mailbox::kMaxWaiting);
  EXPECT_TRUE(mailbox_.post(letter("Name")));
}

TEST_F(MailboxTest, Closed_TakesNothingMore) {
  mailbox_.want("Name", "", Recorder::callback, &recorder_);
  EXPECT_TRUE(mailbox_.post(letter("Name")));
  recorder_.wait(1);
  mailbox_.close(kLongMs);
  EXPECT_FALSE(mailbox_.post(letter("Name")));
  EXPECT_EQ(recorder_.lines().size(), 1U);
}
