#include <cerrno>

#include "cloudproxy/exchange.h"
#include "tests/unit/cloudproxy/fixture.h"

namespace {

constexpr const char* kRequest = R"({"proxy":{"command":"info"}})";
constexpr const char* kSuccess = R"({"proxy":{"result":"success"}})";

const Texts kRegistration = {"ipcSetAppID(\"jxdownloader\")", "ipcRegisterUnicastError(callback1, null)",
                             "ipcRegisterNotificationCB(\"CloudProxyConfResponse\", callback1, null, 0, \"\")"};
const std::string kSend = R"(ipcNotify("1", "CloudProxyConf", {"proxy":{"command":"info"}}, 0, ""))";

Texts operator+(Texts left, const Texts& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

class RegistrationTest : public CloudProxyTest {
 protected:
  // The result of one request, and what its object holds then.
  std::pair<int, std::string> request() {
    zoripc::JSObject message = json(kRequest);
    const int result = cloudProxyRequest(message, 5);
    return {result, message.dump()};
  }

  const std::pair<int, std::string> kDone{0, kSuccess};
  const std::pair<int, std::string> kUntouched{-1, kRequest};
};

TEST_F(RegistrationTest, FirstRequest_RegistersAndSends) {
  inOwnProcess([this] {
    answer("info", kSuccess);
    EXPECT_EQ(request(), kDone);
    EXPECT_EQ(ipc.calls(), (kRegistration + Texts{kSend}));
  });
}

TEST_F(RegistrationTest, LaterRequests_DoNotRegisterAgain) {
  inOwnProcess([this] {
    for (int i = 0; i < 3; ++i) answer("info", kSuccess);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(request(), kDone);
    EXPECT_EQ(ipc.calls(), (kRegistration + Texts{kSend, kSend, kSend}));
  });
}

TEST_F(RegistrationTest, AfterATimeOut_DoesNotRegisterAgain) {
  inOwnProcess([this] {
    EXPECT_EQ(request().first, -2);
    answer("info", kSuccess);
    EXPECT_EQ(request(), kDone);
    EXPECT_EQ(ipc.calls(), (kRegistration + Texts{kSend, kSend}));
  });
}

TEST_F(RegistrationTest, AfterASendThatFailed_DoesNotRegisterAgain) {
  inOwnProcess([this] {
    ipc.onSend([](const zoripc::JSObject&) { return -1; });
    EXPECT_EQ(request().first, -1);
    EXPECT_EQ(request().first, -1);
    EXPECT_EQ(ipc.calls(), (kRegistration + Texts{kSend, kSend}));
  });
}

TEST_F(RegistrationTest, UnicastErrorIsRefused_LeavesTheRequestAndTriesAllAgain) {
  inOwnProcess([this] {
    ipc.unicastErrorResults({-ENOMEM, 1});
    EXPECT_EQ(request(), kUntouched);
    EXPECT_EQ(request(), kUntouched);
    const Texts refused{kRegistration[0], kRegistration[1]};
    EXPECT_EQ(ipc.calls(), (refused + refused));
    EXPECT_EQ(wrapped::conditionCalls(), Texts{});
    answer("info", kSuccess);
    EXPECT_EQ(request(), kDone);
    EXPECT_EQ(ipc.calls(), (refused + refused + kRegistration + Texts{kSend}));
  });
}

TEST_F(RegistrationTest, NotificationIsRefused_UndoesTheOtherAndTriesAllAgain) {
  inOwnProcess([this] {
    ipc.notificationResults({-ENOMEM, 1});
    EXPECT_EQ(request(), kUntouched);
    EXPECT_EQ(request(), kUntouched);
    const Texts refused = kRegistration + Texts{"ipcUnregisterUnicastError(callback1, null)"};
    EXPECT_EQ(ipc.calls(), (refused + refused));
    EXPECT_EQ(wrapped::conditionCalls(), Texts{});
    answer("info", kSuccess);
    EXPECT_EQ(request(), kDone);
    EXPECT_EQ(ipc.calls(), (refused + refused + kRegistration + Texts{kSend}));
  });
}

TEST_F(RegistrationTest, Success_MakesTheConditionOnceOnTheMonotonicClock) {
  inOwnProcess([this] {
    for (int i = 0; i < 2; ++i) answer("info", kSuccess);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(request(), kDone);
    EXPECT_EQ(wrapped::conditionCalls(),
              (Texts{"attribute", "setclock monotonic", "condition with attribute", "destroy attribute"}));
  });
}

TEST_F(RegistrationTest, ResponseDuringTheRegistration_IsNoAnswerToTheRequest) {
  inOwnProcess([this] {
    ipc.onRegistration([this] {
      ipc.deliver("CloudProxyConfResponse", json(kSuccess));
      ipc.drain();
    });
    EXPECT_EQ(request(), (std::pair<int, std::string>{-2, "null"}));
  });
}

}  // namespace
