#include "cloudproxy/exchange.h"

#include <cerrno>

#include "tests/unit/cloudproxy/fixture.h"

namespace {

constexpr const char* kResponse = "CloudProxyConfResponse";
constexpr const char* kSuccess = R"({"proxy":{"result":"success"}})";

struct Outcome {
  int result;
  std::string message;
};

bool operator==(const Outcome& left, const Outcome& right) {
  return left.result == right.result && left.message == right.message;
}

std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
  return stream << outcome.result << " " << outcome.message;
}

class ExchangeTest : public CloudProxyTest {
 protected:
  Outcome request(int timeoutSeconds = 5) {
    zoripc::JSObject message = json(R"({"proxy":{"command":"info"}})");
    const int result = cloudProxyRequest(message, timeoutSeconds);
    return {result, message.dump()};
  }

  Outcome answered(const std::string& response) {
    answer("info", response);
    return request();
  }
};

TEST_F(ExchangeTest, Success_ReturnsZeroAndTheResponse) {
  inOwnProcess([this] {
    const std::string response = R"({"proxy":{"result":"success","version":"1.2"},"other":[1,2.5,null]})";
    EXPECT_EQ(answered(response), (Outcome{0, json(response).dump()}));
  });
}

TEST_F(ExchangeTest, AnyOtherResult_ReturnsMinusThreeAndTheResponse) {
  inOwnProcess([this] {
    for (const std::string response : {R"({"proxy":{"result":"error"}})",
                                       R"({"proxy":{"result":1}})",
                                       R"({"proxy":{"result":true}})",
                                       R"({"proxy":{"result":null}})",
                                       R"({"proxy":{"result":["success"]}})",
                                       R"({"proxy":{"result":""}})",
                                       R"({"proxy":{"result":"Success"}})",
                                       R"({"proxy":{"result":"success "}})",
                                       R"({"proxy":{"result":"success\u0000"}})",
                                       R"({"proxy":{"version":"1"}})",
                                       R"({"proxy":{}})",
                                       R"({"proxy":"success"})",
                                       R"({"proxy":null})",
                                       R"({"proxy":["result"]})",
                                       R"({"result":"success"})",
                                       "{}",
                                       "[]",
                                       "0",
                                       "\"success\"",
                                       "false"}) {
      EXPECT_EQ(answered(response), (Outcome{-3, json(response).dump()}));
    }
  });
}

TEST_F(ExchangeTest, EmptyResponse_WakesTheRequester) {
  inOwnProcess([this] { EXPECT_EQ(answered("null"), (Outcome{-3, R"({"result":"FAIL"})"})); });
}

TEST_F(ExchangeTest, FailedDelivery_WakesTheRequester) {
  inOwnProcess([this] {
    ipc.onSend([this](const zoripc::JSObject& message) {
      ipc.reportFailure("CloudProxyConf", message);
      return 0;
    });
    EXPECT_EQ(request(), (Outcome{-3, R"({"result":"FAIL"})"}));
  });
}

TEST_F(ExchangeTest, OtherNames_AreNoAnswer) {
  inOwnProcess([this] {
    ipc.onSend([this](const zoripc::JSObject& message) {
      ipc.deliverAnyway("CloudProxyConfResponse2", json(R"({"proxy":{"result":"success","n":1}})"));
      ipc.deliverAnyway("", json(R"({"proxy":{"result":"success","n":2}})"));
      ipc.reportFailure("_mac_control_trigger", message);
      ipc.deliver(kResponse, json(kSuccess));
      return 0;
    });
    EXPECT_EQ(request(), (Outcome{0, kSuccess}));
  });
}

TEST_F(ExchangeTest, OtherNamesAlone_RunIntoTheTimeOut) {
  inOwnProcess([this] {
    ipc.onSend([this](const zoripc::JSObject& message) {
      ipc.deliverAnyway("Other", json(kSuccess));
      ipc.reportFailure("Other", message);
      wrapped::stopClockInThePast();
      return 0;
    });
    EXPECT_EQ(request(), (Outcome{-2, "null"}));
    ipc.drain();
    EXPECT_EQ(wrapped::signals(), 0) << "the requester is not woken for them";
  });
}

TEST_F(ExchangeTest, ResponsesAndFailedDeliveries_SignalOnceEach) {
  inOwnProcess([this] {
    EXPECT_EQ(answered(kSuccess).result, 0);
    EXPECT_EQ(wrapped::signals(), 1);
    ipc.reportFailure("CloudProxyConf", json("{}"));
    ipc.drain();
    EXPECT_EQ(wrapped::signals(), 2);
  });
}

// Both have come before the requester sees either.
TEST_F(ExchangeTest, FailedDeliveryAfterAResponse_IsMarkedBesideIt) {
  inOwnProcess([this] {
    wrapped::duringWaits([this] { ipc.drain(); });
    ipc.onSend([this](const zoripc::JSObject& message) {
      ipc.deliver(kResponse, json(R"({"proxy":{"result":"success","n":1}})"));
      ipc.reportFailure("CloudProxyConf", message);
      return 0;
    });
    EXPECT_EQ(request(), (Outcome{0, R"({"proxy":{"n":1,"result":"success"},"result":"FAIL"})"}));
  });
}

TEST_F(ExchangeTest, ResponseAfterAnother_ReplacesIt) {
  inOwnProcess([this] {
    wrapped::duringWaits([this] { ipc.drain(); });
    ipc.onSend([this](const zoripc::JSObject& message) {
      ipc.reportFailure("CloudProxyConf", message);
      ipc.deliver(kResponse, json(R"({"proxy":{"result":"error"},"other":1})"));
      ipc.deliver(kResponse, json(kSuccess));
      return 0;
    });
    EXPECT_EQ(request(), (Outcome{0, kSuccess}));
    ipc.onSend([this](const zoripc::JSObject&) {
      ipc.deliver(kResponse, json(kSuccess));
      ipc.deliver(kResponse, zoripc::JSObject());
      return 0;
    });
    EXPECT_EQ(request(), (Outcome{-3, R"({"result":"FAIL"})"}));
  });
}

TEST_F(ExchangeTest, SendFails_ReturnsMinusOneAndNull) {
  inOwnProcess([this] {
    for (const int failure : {-1, 1, -ENOTCONN}) {
      ipc.onSend([failure](const zoripc::JSObject&) { return failure; });
      EXPECT_EQ(request(), (Outcome{-1, "null"}));
    }
    EXPECT_EQ(wrapped::waitsNs(), std::vector<long long>{});
  });
}

TEST_F(ExchangeTest, AfterASendThatFailed_TheNextRequestWorks) {
  inOwnProcess([this] {
    ipc.onSend([](const zoripc::JSObject&) { return -1; });
    EXPECT_EQ(request().result, -1);
    ipc.onSend([this](const zoripc::JSObject&) {
      ipc.deliver(kResponse, json(kSuccess));
      return 0;
    });
    EXPECT_EQ(request(), (Outcome{0, kSuccess}));
  });
}

TEST_F(ExchangeTest, NoResponse_ReturnsMinusTwoAndNull) {
  inOwnProcess([this] {
    EXPECT_EQ(request(), (Outcome{-2, "null"}));
    EXPECT_EQ(request(), (Outcome{-2, "null"}));
  });
}

TEST_F(ExchangeTest, Wait_EndsItsTimeOutAfterNow) {
  inOwnProcess([this] {
    wrapped::answerWaits({ETIMEDOUT, ETIMEDOUT, ETIMEDOUT});
    for (const int seconds : {5, 10, 0}) EXPECT_EQ(request(seconds), (Outcome{-2, "null"}));
    EXPECT_EQ(wrapped::waitsNs(), (std::vector<long long>{5000000000, 10000000000, 0}));
  });
}

TEST_F(ExchangeTest, SlowSending_DoesNotShortenTheWait) {
  inOwnProcess([this] {
    wrapped::answerWaits({ETIMEDOUT});
    ipc.onSend([](const zoripc::JSObject&) {
      wrapped::advanceMs(3000);
      return 0;
    });
    EXPECT_EQ(request(5), (Outcome{-2, "null"}));
    EXPECT_EQ(wrapped::waitsNs(), (std::vector<long long>{5000000000}));
  });
}

TEST_F(ExchangeTest, WaitFails_CountsAsNoResponse) {
  inOwnProcess([this] {
    for (const int error : {EINVAL, EPERM, -1}) {
      wrapped::answerWaits({error});
      EXPECT_EQ(request(), (Outcome{-2, "null"}));
    }
  });
}

TEST_F(ExchangeTest, WakingForNothing_WaitsOnUntilTheSameDeadline) {
  inOwnProcess([this] {
    wrapped::answerWaits({0, 0, ETIMEDOUT});
    EXPECT_EQ(request(7), (Outcome{-2, "null"}));
    EXPECT_EQ(wrapped::waitsNs(), (std::vector<long long>{7000000000, 7000000000, 7000000000}));
  });
}

TEST_F(ExchangeTest, LateResponse_IsDiscardedByTheNextRequest) {
  inOwnProcess([this] {
    EXPECT_EQ(request().result, -2);
    ipc.deliver(kResponse, json(kSuccess));
    ipc.reportFailure("CloudProxyConf", json("{}"));
    ipc.drain();
    EXPECT_EQ(request(), (Outcome{-2, "null"}));
  });
}

TEST_F(ExchangeTest, LateResponseAfterTheNextSend_IsTakenForItsAnswer) {
  inOwnProcess([this] {
    EXPECT_EQ(request().result, -2);
    answer("info", R"({"proxy":{"result":"success","of":"the first"}})");
    EXPECT_EQ(request(), (Outcome{0, R"({"proxy":{"of":"the first","result":"success"}})"}));
  });
}

TEST_F(ExchangeTest, ResponseOfTheLastRequest_IsNoAnswerToTheNext) {
  inOwnProcess([this] {
    EXPECT_EQ(answered(kSuccess).result, 0);
    EXPECT_EQ(request(), (Outcome{-2, "null"}));
  });
}

TEST_F(ExchangeTest, ResponseWhileItIsSent_IsNotLost) {
  inOwnProcess([this] {
    EXPECT_EQ(request().result, -2);
    ipc.onSend([](const zoripc::JSObject&) {
      const bool isFree = pthread_mutex_trylock(wrapped::mutexOfWaits()) == 0;
      if (isFree) pthread_mutex_unlock(wrapped::mutexOfWaits());
      EXPECT_FALSE(isFree) << "a callback waits until the request does";
      return -1;
    });
    EXPECT_EQ(request().result, -1);
    ipc.onSend([this](const zoripc::JSObject&) {
      wrapped::stopClock();
      ipc.deliver(kResponse, json(kSuccess));
      return 0;
    });
    for (int i = 0; i < 200; ++i) EXPECT_EQ(request(), (Outcome{0, kSuccess}));
  });
}

TEST_F(ExchangeTest, CallersObject_IsItsOwn) {
  inOwnProcess([this] {
    answer("info", kSuccess);
    zoripc::JSObject first = json(R"({"proxy":{"command":"info"}})");
    ASSERT_EQ(cloudProxyRequest(first, 5), 0);
    first["proxy"]["result"] = "changed";
    EXPECT_EQ(request(), (Outcome{-2, "null"}));
    EXPECT_EQ(first.dump(), R"({"proxy":{"result":"changed"}})");
  });
}

}  // namespace
