// The exchange against a proxy that answers at random times, on the real clock and with real threads.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <random>
#include <thread>

#include "cloudproxy/exchange.h"
#include "tests/support/fake_ipc.h"

namespace {

constexpr int kRequests = 1000;
constexpr int kPatienceSeconds = 120;
constexpr const char* kResponse = "CloudProxyConfResponse";

// A proxy whose answers carry the number of their request; some come after the time-out, or not at all
// unless the request is patient.
class RandomProxy {
 public:
  RandomProxy() {
    ipc.onSend([this](const zoripc::JSObject& message) { return take(message); });
  }

 private:
  int take(const zoripc::JSObject& message) {
    const int kind = std::uniform_int_distribution<int>(0, 19)(random);
    const std::chrono::microseconds delay(std::uniform_int_distribution<int>(0, 1500)(random));
    if (kind == 0) return -1;
    if (delay.count() % 3 != 0) ipc.onThread([delay] { std::this_thread::sleep_for(delay); });
    if (kind == 1) {
      ipc.reportFailure("CloudProxyConf", message);
    } else if (kind > 2 || message["proxy"]["patient"].getBool()) {
      zoripc::JSObject answer;
      answer["proxy"]["result"] = kind == 3 ? "error" : "success";
      answer["proxy"]["n"] = message["proxy"]["n"];
      ipc.deliver(kResponse, answer);
      if (kind == 4) ipc.deliver(kResponse, answer);
    }
    return 0;
  }

  FakeIpc& ipc = FakeIpc::instance();
  std::minstd_rand random{20240229};
};

TEST(ThreadsTest, ThousandRequests_GetAnswersOfTheirOwnOrOfOneBefore) {
  RandomProxy proxy;
  std::map<int, int> results;
  std::minstd_rand random{7};
  for (int n = 1; n <= kRequests; ++n) {
    zoripc::JSObject message;
    message["proxy"]["n"] = n;
    const bool patient = std::uniform_int_distribution<int>(0, 3)(random) != 0;
    message["proxy"]["patient"] = patient;
    const int result = cloudProxyRequest(message, patient ? kPatienceSeconds : 0);
    ASSERT_FALSE(patient && result == -2) << n;
    ++results[result];
    if (result == 0) {
      ASSERT_GE(message["proxy"]["n"].getInt(), 1);
      ASSERT_LE(message["proxy"]["n"].getInt(), n);
    }
    ASSERT_EQ(message.isNull(), result == -1 || result == -2);
  }
  FakeIpc::instance().drain();
  EXPECT_EQ(results[0] + results[-1] + results[-2] + results[-3], kRequests);
  for (const int result : {0, -1, -2, -3}) EXPECT_GT(results[result], 0) << result;
  EXPECT_GT(results[0], kRequests / 3);
}

}  // namespace
